#include "delivery/video_bridge.h"

#include <utility>

#include "delivery/callbacks.h"
#include "state/branch_stats.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

void CountInSlot(BranchCounters& slots, std::int32_t branchIndex) {
  if (!IsTrackedBranch(branchIndex)) return;
  slots[static_cast<std::size_t>(branchIndex)].fetch_add(1);
}

template <typename Update>
void UpdateHardwareBranch(std::int32_t branchIndex, Update update)
    REQUIRES(g_hardwareStatsMutex) {
  if (VideoBranchStats* stats = FindHardwareBranchStats(branchIndex)) {
    update(*stats);
  }
}

// Whether the branch waits for a keyframe that this packet is not. A keyframe
// ends the wait.
bool IsWithheld(const VideoPacket& packet) {
  if (!IsTrackedBranch(packet.branchIndex)) return false;
  auto& waiting = g_videoBridgeNeedsKeyframeRecovery[static_cast<std::size_t>(
      packet.branchIndex)];
  if (!waiting.load()) return false;
  if (!packet.isKeyFrame) return true;
  waiting.exchange(false);
  return false;
}

// The totals change with the records that they are the sums of.
void CountSuppressed(std::int32_t branchIndex) {
  const MutexLock lock(g_hardwareStatsMutex);
  g_videoBridgeSuppressedDeltaPackets.Add(1);
  CountInSlot(g_videoBridgeSuppressedDeltaByBranch, branchIndex);
  UpdateHardwareBranch(branchIndex, [](VideoBranchStats& stats) {
    ++stats.bridgeSuppressedDeltaPackets;
  });
}

void CountQueued(std::int32_t branchIndex) {
  const MutexLock lock(g_hardwareStatsMutex);
  g_videoBridgeQueuedPackets.Add(1);
  CountInSlot(g_videoBridgeQueuedByBranch, branchIndex);
  UpdateHardwareBranch(branchIndex, [](VideoBranchStats& stats) {
    ++stats.bridgeQueuedPackets;
  });
}

void CountDropped(std::int32_t branchIndex) {
  const MutexLock lock(g_hardwareStatsMutex);
  g_videoBridgeDroppedPackets.Add(1);
  if (IsTrackedBranch(branchIndex)) {
    g_videoBridgeNeedsKeyframeRecovery[static_cast<std::size_t>(branchIndex)]
        .store(true);
  }
  CountInSlot(g_videoBridgeDroppedByBranch, branchIndex);
  CountInSlot(g_videoBridgeKeyframeRecoveryByBranch, branchIndex);
  UpdateHardwareBranch(branchIndex, [](VideoBranchStats& stats) {
    ++stats.bridgeDroppedPackets;
    ++stats.bridgeKeyframeRecoveryRequests;
  });
}

}  // namespace

void EmitVideoPacket(std::unique_ptr<VideoPacket> packet) {
  const std::int32_t branchIndex = packet->branchIndex;
  if (IsWithheld(*packet)) {
    CountSuppressed(branchIndex);
    return;
  }
  switch (g_fragmentCallback.Queue(std::move(packet))) {
    case QueueResult::kNoCallback:
      break;
    case QueueResult::kAccepted:
      CountQueued(branchIndex);
      break;
    case QueueResult::kRefused:
      CountDropped(branchIndex);
      break;
  }
}

}  // namespace linux_capture
