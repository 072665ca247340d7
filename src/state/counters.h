#ifndef LINUX_CAPTURE_STATE_COUNTERS_H_
#define LINUX_CAPTURE_STATE_COUNTERS_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/capture_mutex.h"
#include "base/guarded_text.h"
#include "base/no_destroy.h"
#include "base/relaxed.h"

namespace linux_capture {

// Process-wide statistics. Streaming threads write them, any thread reads
// them; they stay readable after a stop, until the next setup.
using Counter = Relaxed<std::uint64_t>;

// Where the report has a counter; a section is in the table's order.
enum class CounterSection : std::uint8_t {
  kVideo,
  kAudioAmount,
  kAudio,
  kClocks,
  kBridge,
  kMapped,
  kBus,
  kEncoder,
};

// What puts a counter back to 0.
enum class CounterLife : std::uint8_t {
  kSession,      // a new session alone
  kStatistics,   // `resetStats` too
  kLastPackets,  // new targets of sound too: it tells of their last packets
};

// Every counter, once: the line COUNTER(name, section, life) is the variable
// g_name, the report's key "name", and when it begins anew. A sample is one
// 16-bit value, an audio packet one buffer. Clocks are in microseconds: the
// origin is on the monotonic clock, the timestamps are on the session clock,
// and 0 means not seen.
#define LINUX_CAPTURE_COUNTERS(COUNTER)                            \
  COUNTER(framesCaptured, kVideo, kStatistics)                     \
  COUNTER(framesEncoded, kVideo, kStatistics)                      \
  COUNTER(keyframesEncoded, kVideo, kStatistics)                   \
  COUNTER(deltaFramesEncoded, kVideo, kStatistics)                 \
  COUNTER(audioSamplesCaptured, kAudioAmount, kStatistics)         \
  COUNTER(audioPacketsCaptured, kAudioAmount, kStatistics)         \
  COUNTER(audioNonZeroSamplesCaptured, kAudio, kStatistics)        \
  COUNTER(audioAbsoluteSampleSum, kAudio, kStatistics)             \
  COUNTER(audioPeakAbsoluteSample, kAudio, kStatistics)            \
  COUNTER(audioClippedSamplesCaptured, kAudio, kStatistics)        \
  COUNTER(audioSilentPackets, kAudio, kStatistics)                 \
  COUNTER(audioConsecutiveSilentPackets, kAudio, kLastPackets)     \
  COUNTER(audioMaxConsecutiveSilentPackets, kAudio, kLastPackets)  \
  COUNTER(audioLastPacketAtMs, kAudio, kLastPackets)               \
  COUNTER(audioLastNonZeroAtMs, kAudio, kLastPackets)              \
  COUNTER(audioLastNonZeroSamples, kAudio, kLastPackets)           \
  COUNTER(audioLastAbsoluteSampleSum, kAudio, kLastPackets)        \
  COUNTER(audioLastPeakAbsoluteSample, kAudio, kLastPackets)       \
  COUNTER(audioLastClippedSamples, kAudio, kLastPackets)           \
  COUNTER(sessionClockOriginUs, kClocks, kSession)                 \
  COUNTER(firstVideoTimestampUs, kClocks, kStatistics)             \
  COUNTER(lastVideoTimestampUs, kClocks, kStatistics)              \
  COUNTER(firstAudioTimestampUs, kClocks, kStatistics)             \
  COUNTER(lastAudioTimestampUs, kClocks, kStatistics)              \
  COUNTER(videoBridgeQueuedPackets, kBridge, kStatistics)          \
  COUNTER(videoBridgeDroppedPackets, kBridge, kStatistics)         \
  COUNTER(videoBridgeSuppressedDeltaPackets, kBridge, kStatistics) \
  COUNTER(audioBridgeQueuedPackets, kBridge, kStatistics)          \
  COUNTER(audioBridgeDroppedPackets, kBridge, kStatistics)         \
  COUNTER(cpuMappedVideoFrames, kMapped, kStatistics)              \
  COUNTER(gstBusErrors, kBus, kSession)                            \
  COUNTER(gstBusEos, kBus, kSession)                               \
  COUNTER(openH264Errors, kEncoder, kStatistics)

#define LINUX_CAPTURE_DEFINE_COUNTER(name, section, life) \
  inline Counter g_##name;
LINUX_CAPTURE_COUNTERS(LINUX_CAPTURE_DEFINE_COUNTER)
#undef LINUX_CAPTURE_DEFINE_COUNTER

struct CounterEntry {
  const char* key;
  Counter* counter;
  CounterSection section;
  CounterLife life;
};

#define LINUX_CAPTURE_LIST_COUNTER(name, section, life) \
  CounterEntry{#name, &g_##name, CounterSection::section, CounterLife::life},
inline constexpr auto kCounters =
    std::to_array({LINUX_CAPTURE_COUNTERS(LINUX_CAPTURE_LIST_COUNTER)});
#undef LINUX_CAPTURE_LIST_COUNTER

// Puts back to 0 what lives no longer than that.
inline void ZeroCounters(CounterLife life) noexcept {
  for (const CounterEntry& entry : kCounters) {
    if (entry.life >= life) entry.counter->Set(0);
  }
}

// The size of branch 0, in pixels.
inline Relaxed<std::int32_t> g_width;
inline Relaxed<std::int32_t> g_height;

// Written by streaming threads as well as by the JavaScript thread.
inline NoDestroy<GuardedText> g_lastOpenH264Error;

// A report never counts an error without its text.
inline void CountOpenH264Error(std::string_view text) {
  g_lastOpenH264Error->SetWith(text, [] { g_openH264Errors.Add(1); });
}

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
