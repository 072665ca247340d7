#include "delivery/video_bridge.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "delivery/callbacks.h"
#include "state/branch_stats.h"
#include "state/counters.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"

namespace linux_capture {
namespace {

class VideoBridgeTest : public CaptureFixture {
 protected:
  static void Emit(std::int32_t branchIndex, bool keyframe,
                   std::uint64_t mark = 0) {
    auto packet = std::make_unique<VideoPacket>();
    packet->branchIndex = branchIndex;
    packet->isKeyFrame = keyframe;
    packet->timestampUs = mark;
    EmitVideoPacket(std::move(packet));
  }

  static void EmitRefused(std::int32_t branchIndex, bool keyframe) {
    FakeNodeApi::AnswerCallsWith(napi_queue_full);
    Emit(branchIndex, keyframe);
    FakeNodeApi::AnswerCallsWith(napi_ok);
  }

  static void AddHardwareRecord(std::int32_t branchIndex) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    VideoBranchStats stats;
    stats.branchIndex = branchIndex;
    g_hardwareBranchStats->push_back(stats);
  }

  static VideoBranchStats HardwareRecord(std::size_t position) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    return g_hardwareBranchStats->at(position);
  }

  static std::uint64_t Sum(const BranchCounters& slots) {
    std::uint64_t sum = 0;
    for (const auto& slot : slots) sum += slot.load();
    return sum;
  }
};

TEST_F(VideoBridgeTest, AQueuedPacketIsCounted) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  Emit(2, false, 5);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->timestampUs, 5U);
  EXPECT_EQ(g_videoBridgeQueuedPackets.Get(), 1U);
  EXPECT_EQ(g_videoBridgeQueuedByBranch[2].load(), 1U);
  EXPECT_EQ(Sum(g_videoBridgeQueuedByBranch), 1U);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 0U);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaPackets.Get(), 0U);
}

TEST_F(VideoBridgeTest, ARefusedPacketPutsItsBranchIntoRecovery) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  EmitRefused(1, false);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 1U);
  EXPECT_EQ(g_videoBridgeDroppedByBranch[1].load(), 1U);
  EXPECT_EQ(g_videoBridgeKeyframeRecoveryByBranch[1].load(), 1U);
  EXPECT_TRUE(g_videoBridgeNeedsKeyframeRecovery[1].load());
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[0].load());
  EXPECT_EQ(g_videoBridgeQueuedPackets.Get(), 0U);
}

TEST_F(VideoBridgeTest, DeltasAreWithheldUntilAKeyframePasses) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  EmitRefused(1, false);
  Emit(1, false, 1);
  Emit(1, false, 2);
  Emit(0, false, 3);  // another branch is not affected
  Emit(1, true, 4);
  Emit(1, false, 5);
  std::vector<std::uint64_t> delivered;
  for (const auto& packet : listener.Take()) {
    delivered.push_back(packet->timestampUs);
  }
  EXPECT_EQ(delivered, (std::vector<std::uint64_t>{3, 4, 5}));
  EXPECT_EQ(g_videoBridgeSuppressedDeltaPackets.Get(), 2U);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaByBranch[1].load(), 2U);
  EXPECT_EQ(Sum(g_videoBridgeSuppressedDeltaByBranch), 2U);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 1U);
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[1].load());
}

TEST_F(VideoBridgeTest, ARefusedKeyframeKeepsTheBranchWaiting) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  EmitRefused(1, false);
  EmitRefused(1, true);
  EXPECT_TRUE(g_videoBridgeNeedsKeyframeRecovery[1].load());
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 2U);
  EXPECT_EQ(g_videoBridgeKeyframeRecoveryByBranch[1].load(), 2U);
  Emit(1, false);
  EXPECT_TRUE(listener.Take().empty());
}

TEST_F(VideoBridgeTest, EveryRefusalCountsAsADrop) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  for (const napi_status status :
       {napi_queue_full, napi_generic_failure, napi_closing}) {
    FakeNodeApi::AnswerCallsWith(status);
    Emit(0, true);
  }
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 3U);
}

TEST_F(VideoBridgeTest, UntrackedBranchesAreDeliveredWithoutRecovery) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  for (const std::int32_t branch : {16, 100, -1}) {
    EmitRefused(branch, false);
    Emit(branch, false);
  }
  EXPECT_EQ(listener.Take().size(), 3U);
  EXPECT_EQ(g_videoBridgeQueuedPackets.Get(), 3U);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 3U);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaPackets.Get(), 0U);
  EXPECT_EQ(Sum(g_videoBridgeQueuedByBranch), 0U);
  EXPECT_EQ(Sum(g_videoBridgeDroppedByBranch), 0U);
  EXPECT_EQ(Sum(g_videoBridgeKeyframeRecoveryByBranch), 0U);
}

TEST_F(VideoBridgeTest, TheLastTrackedBranchIsTracked) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  EmitRefused(15, false);
  Emit(15, false);
  EXPECT_EQ(g_videoBridgeDroppedByBranch[15].load(), 1U);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaByBranch[15].load(), 1U);
}

TEST_F(VideoBridgeTest, WithoutACallbackNoCounterMoves) {
  AddHardwareRecord(0);
  Emit(0, true);
  Emit(0, false);
  EXPECT_EQ(g_videoBridgeQueuedPackets.Get(), 0U);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 0U);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaPackets.Get(), 0U);
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[0].load());
  EXPECT_EQ(HardwareRecord(0).bridgeQueuedPackets, 0U);
  EXPECT_EQ(HardwareRecord(0).bridgeDroppedPackets, 0U);
}

TEST_F(VideoBridgeTest, WithoutACallbackAWaitingBranchStillWithholds) {
  g_videoBridgeNeedsKeyframeRecovery[0].store(true);
  Emit(0, false);
  EXPECT_EQ(g_videoBridgeSuppressedDeltaPackets.Get(), 1U);
  Emit(0, true);
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[0].load());
}

TEST_F(VideoBridgeTest, TheFirstHardwareRecordOfTheBranchIsUpdatedToo) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  AddHardwareRecord(4);
  AddHardwareRecord(1);
  AddHardwareRecord(1);
  Emit(1, true);
  EmitRefused(1, false);
  Emit(1, false);
  const VideoBranchStats first = HardwareRecord(1);
  EXPECT_EQ(first.bridgeQueuedPackets, 1U);
  EXPECT_EQ(first.bridgeDroppedPackets, 1U);
  EXPECT_EQ(first.bridgeKeyframeRecoveryRequests, 1U);
  EXPECT_EQ(first.bridgeSuppressedDeltaPackets, 1U);
  for (const std::size_t other : {std::size_t{0}, std::size_t{2}}) {
    EXPECT_EQ(HardwareRecord(other).bridgeQueuedPackets, 0U);
    EXPECT_EQ(HardwareRecord(other).bridgeDroppedPackets, 0U);
  }
}

TEST_F(VideoBridgeTest, UntrackedBranchesStillReachTheirHardwareRecord) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  AddHardwareRecord(20);
  Emit(20, false);
  EmitRefused(20, false);
  EXPECT_EQ(HardwareRecord(0).bridgeQueuedPackets, 1U);
  EXPECT_EQ(HardwareRecord(0).bridgeDroppedPackets, 1U);
}

TEST_F(VideoBridgeTest, TheQueueHolds512Packets) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  for (int i = 0; i < 515; ++i) Emit(0, true);
  EXPECT_EQ(g_videoBridgeQueuedPackets.Get(), 512U);
  EXPECT_EQ(g_videoBridgeDroppedPackets.Get(), 3U);
  EXPECT_EQ(listener.Take().size(), 512U);
}

}  // namespace
}  // namespace linux_capture
