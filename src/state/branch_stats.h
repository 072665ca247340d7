#ifndef LINUX_CAPTURE_STATE_BRANCH_STATS_H_
#define LINUX_CAPTURE_STATE_BRANCH_STATS_H_

#include <array>
#include <cstdint>
#include <vector>

#include "base/capture_mutex.h"
#include "base/no_destroy.h"
#include "config/capture_config.h"

namespace linux_capture {

// What one encoding branch did. Field names are the report's keys.
struct VideoBranchStats {
  std::int32_t branchIndex = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t fps = 0;
  std::int32_t appliedBitrate = 0;     // bits per second
  std::int32_t appliedMaxBitrate = 0;  // bits per second
  std::uint64_t droppedFrames = 0;
  std::uint64_t duplicateFrames = 0;
  std::uint64_t rawFrames = 0;
  std::uint64_t encodedFrames = 0;
  std::uint64_t keyframes = 0;
  std::uint64_t bytesEncoded = 0;
  std::uint64_t bridgeQueuedPackets = 0;
  std::uint64_t bridgeDroppedPackets = 0;
  std::uint64_t bridgeSuppressedDeltaPackets = 0;
  std::uint64_t bridgeKeyframeRecoveryRequests = 0;
  std::uint64_t hardwareKeyframeRequestsAccepted = 0;
  std::uint64_t hardwareKeyframeRequestsFailed = 0;
  std::uint64_t lastHardwareKeyframeRequestAtMs = 0;
  std::uint64_t lastHardwareKeyframeAtMs = 0;
  std::uint64_t maxHardwareKeyframeRecoveryLatencyMs = 0;
  std::uint64_t firstFrameAtMs = 0;
  std::uint64_t lastFrameAtMs = 0;
  std::array<std::uint64_t, 4> temporalFrameCounts{};
};

// What a branch has before its first frame.
VideoBranchStats ZeroedBranchStats(const VideoBranchConfig& branch);

// Branches of a hardware capture. The mutex may be taken under the capture
// mutex or under an encoder's mutex; no other mutex is taken under it.
inline Mutex g_hardwareStatsMutex ACQUIRED_AFTER(g_mutex);

// Held from the moment at which a packet of the hardware path is counted until
// its fate is, so that a report or a reset finds both or none. The callback
// queue's mutex is taken under it.
inline Mutex g_hardwareHandOverMutex ACQUIRED_AFTER(g_mutex)
    ACQUIRED_BEFORE(g_hardwareStatsMutex);

inline NoDestroy<std::vector<VideoBranchStats>> g_hardwareBranchStats
    GUARDED_BY(g_hardwareStatsMutex);

// The first hardware record of that branch, or null.
VideoBranchStats* FindHardwareBranchStats(std::int32_t branchIndex)
    REQUIRES(g_hardwareStatsMutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_BRANCH_STATS_H_
