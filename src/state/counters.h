#ifndef LINUX_CAPTURE_STATE_COUNTERS_H_
#define LINUX_CAPTURE_STATE_COUNTERS_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/capture_mutex.h"
#include "base/guarded_text.h"
#include "base/no_destroy.h"
#include "base/relaxed.h"

namespace linux_capture {

// Process-wide statistics. Streaming threads write them, any thread reads
// them; they stay readable after a stop, until the next setup.
using Counter = Relaxed<std::uint64_t>;

// Video. g_width and g_height are the size of branch 0, in pixels.
inline Counter g_framesCaptured;
inline Counter g_framesEncoded;
inline Counter g_keyframesEncoded;
inline Counter g_deltaFramesEncoded;
inline Counter g_cpuMappedVideoFrames;
inline Relaxed<std::int32_t> g_width;
inline Relaxed<std::int32_t> g_height;

// Mixed audio. A sample is one 16-bit value, a packet one buffer.
inline Counter g_audioSamplesCaptured;
inline Counter g_audioPacketsCaptured;
inline Counter g_audioNonZeroSamplesCaptured;
inline Counter g_audioAbsoluteSampleSum;
inline Relaxed<std::uint32_t> g_audioPeakAbsoluteSample;
inline Counter g_audioClippedSamplesCaptured;
inline Counter g_audioSilentPackets;
inline Counter g_audioConsecutiveSilentPackets;
inline Counter g_audioMaxConsecutiveSilentPackets;
inline Counter g_audioLastPacketAtMs;
inline Counter g_audioLastNonZeroAtMs;
inline Counter g_audioLastNonZeroSamples;
inline Counter g_audioLastAbsoluteSampleSum;
inline Relaxed<std::uint32_t> g_audioLastPeakAbsoluteSample;
inline Counter g_audioLastClippedSamples;

// Clocks, microseconds. The origin is on the monotonic clock, the timestamps
// are on the session clock; 0 means not seen.
inline Counter g_sessionClockOriginUs;
inline Counter g_firstVideoTimestampUs;
inline Counter g_lastVideoTimestampUs;
inline Counter g_firstAudioTimestampUs;
inline Counter g_lastAudioTimestampUs;

// What happened to packets on their way to JavaScript.
inline Counter g_videoBridgeQueuedPackets;
inline Counter g_videoBridgeDroppedPackets;
inline Counter g_videoBridgeSuppressedDeltaPackets;
inline Counter g_audioBridgeQueuedPackets;
inline Counter g_audioBridgeDroppedPackets;

inline Counter g_gstBusErrors;
inline Counter g_gstBusEos;
inline Counter g_openH264Errors;

// Written by streaming threads as well as by the JavaScript thread.
inline NoDestroy<GuardedText> g_lastOpenH264Error;

// The last negotiated caps. g_capsMutex is taken under the capture mutex at
// most, and no other mutex is taken under it.
inline Mutex g_capsMutex ACQUIRED_AFTER(g_mutex);
inline NoDestroy<std::string> g_lastVideoCaps GUARDED_BY(g_capsMutex);
inline NoDestroy<std::string> g_lastAudioCaps GUARDED_BY(g_capsMutex);

// Per-branch packet accounting, indexed by branch index. Branch indices
// outside the arrays are delivered but not tracked.
inline constexpr std::size_t kBranchSlots = 16;
using BranchCounters = std::array<std::atomic<std::uint64_t>, kBranchSlots>;
inline BranchCounters g_videoBridgeQueuedByBranch{};
inline BranchCounters g_videoBridgeDroppedByBranch{};
inline BranchCounters g_videoBridgeSuppressedDeltaByBranch{};
inline BranchCounters g_videoBridgeKeyframeRecoveryByBranch{};
inline BranchCounters g_hardwareSyntheticTemporalSequenceByBranch{};
inline std::array<std::atomic<bool>, kBranchSlots>
    g_videoBridgeNeedsKeyframeRecovery{};

inline bool IsTrackedBranch(std::int32_t branchIndex) noexcept {
  return branchIndex >= 0 &&
         static_cast<std::size_t>(branchIndex) < kBranchSlots;
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_COUNTERS_H_
