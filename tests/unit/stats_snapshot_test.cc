#include "stats/stats_snapshot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "delivery/callbacks.h"
#include "delivery/packet_counting.h"
#include "delivery/video_bridge.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "stats/stats_reset.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "video_software/openh264_branches.h"

namespace linux_capture {
namespace {

constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

TEST(AudioVideoOffsetTest, TheOffsetIsAudioMinusVideo) {
  EXPECT_EQ(FirstAudioVideoOffsetUs(1500, 1000), 500);
  EXPECT_EQ(FirstAudioVideoOffsetUs(1000, 1500), -500);
}

TEST(AudioVideoOffsetTest, TheOffsetNeedsBothTimestamps) {
  EXPECT_EQ(FirstAudioVideoOffsetUs(0, 1000), 0);
  EXPECT_EQ(FirstAudioVideoOffsetUs(1000, 0), 0);
}

TEST(AudioVideoOffsetTest, TheOffsetIsCappedAt63Bits) {
  EXPECT_EQ(FirstAudioVideoOffsetUs(kHuge, 1), kMax);
  EXPECT_EQ(FirstAudioVideoOffsetUs(1, kHuge), -kMax);
}

TEST(AudioVideoDriftTest, TheDriftIsAudioSpanMinusVideoSpan) {
  EXPECT_EQ(AudioVideoDriftUs(100, 1100, 50, 950), 100);
  EXPECT_EQ(AudioVideoDriftUs(100, 1000, 50, 1050), -100);
}

TEST(AudioVideoDriftTest, WithOnlyVideoTheDriftIsMinusTheVideoSpan) {
  EXPECT_EQ(AudioVideoDriftUs(0, 0, 50, 950), -900);
}

TEST(AudioVideoDriftTest, TheDriftIsSaturated) {
  EXPECT_EQ(AudioVideoDriftUs(1, kHuge, 0, 0), kMax);
  EXPECT_EQ(AudioVideoDriftUs(0, 0, 1, kHuge), -kMax);
}

TEST(BranchReportTest, RatesAreCountsOverTheSpanOfTheFrames) {
  VideoBranchStats stats;
  stats.firstFrameAtMs = 1000;
  stats.lastFrameAtMs = 3000;
  stats.encodedFrames = 61;
  stats.bytesEncoded = 5000;
  const BranchReport report = MakeBranchReport(stats, false);
  EXPECT_DOUBLE_EQ(report.observedFps, 30.5);
  EXPECT_DOUBLE_EQ(report.byteRate, 2500);
}

TEST(BranchReportTest, ABranchWithOneFrameHasNoRates) {
  VideoBranchStats stats;
  stats.firstFrameAtMs = 1000;
  stats.lastFrameAtMs = 1000;
  stats.encodedFrames = 1;
  stats.bytesEncoded = 5000;
  const BranchReport report = MakeBranchReport(stats, false);
  EXPECT_EQ(report.observedFps, 0);
  EXPECT_EQ(report.byteRate, 0);
}

TEST(BranchReportTest, AClockSetBackGivesNoRates) {
  VideoBranchStats stats;
  stats.firstFrameAtMs = 2000;
  stats.lastFrameAtMs = 1000;
  stats.encodedFrames = 10;
  EXPECT_EQ(MakeBranchReport(stats, false).observedFps, 0);
}

TEST(BranchReportTest, EveryOneOfTheFirstThreeLayersMustHaveFrames) {
  VideoBranchStats stats;
  stats.temporalFrameCounts = {5, 0, 10, 0};
  EXPECT_FALSE(MakeBranchReport(stats, false).allTemporalLayersEncoded);
  stats.temporalFrameCounts = {5, 5, 0, 9};
  EXPECT_FALSE(MakeBranchReport(stats, false).allTemporalLayersEncoded);
  stats.temporalFrameCounts = {5, 5, 10, 0};
  EXPECT_TRUE(MakeBranchReport(stats, false).allTemporalLayersEncoded);
}

class StatsSnapshotTest : public CaptureFixture {};

TEST_F(StatsSnapshotTest, FiguresMadeOfOthersAgreeWithThem) {
  g_firstAudioTimestampUs.Set(1'000);
  g_firstVideoTimestampUs.Set(2'000);
  std::atomic<bool> hasEnded{false};
  std::thread streaming([&hasEnded] {
    for (std::uint64_t us = 3'000; !hasEnded.load(); us += 7) {
      g_lastVideoTimestampUs.Set(us);
      g_lastAudioTimestampUs.Set(us + us % 5);
    }
  });
  for (int round = 0; round < 20'000; ++round) {
    const StatsSnapshot snapshot = TakeStatsSnapshot();
    ASSERT_EQ(snapshot.audioVideoDriftUs,
              AudioVideoDriftUs(snapshot.Of(g_firstAudioTimestampUs),
                                snapshot.Of(g_lastAudioTimestampUs),
                                snapshot.Of(g_firstVideoTimestampUs),
                                snapshot.Of(g_lastVideoTimestampUs)));
  }
  hasEnded.store(true);
  streaming.join();
}

// What is wrong with a report whose totals are not the sums of its branches.
std::string WhatDisagrees(const StatsSnapshot& snapshot) {
  std::uint64_t encoded = 0;
  std::uint64_t keyframes = 0;
  std::uint64_t queued = 0;
  for (const BranchReport& branch : snapshot.branches) {
    encoded += branch.stats.encodedFrames;
    keyframes += branch.stats.keyframes;
    queued += branch.stats.bridgeQueuedPackets;
  }
  std::string text;
  const auto compare = [&](const char* name, const Counter& total,
                           std::uint64_t sum) {
    if (snapshot.Of(total) == sum) return;
    text += std::string(name) + " " + std::to_string(snapshot.Of(total)) +
            " of " + std::to_string(sum) + " ";
  };
  compare("encoded", g_framesEncoded, encoded);
  compare("keyframes", g_keyframesEncoded, keyframes);
  compare("queued", g_videoBridgeQueuedPackets, queued);
  return text;
}

VideoPacket PacketOf(std::int32_t branchIndex, std::uint64_t number) {
  VideoPacket packet;
  packet.branchIndex = branchIndex;
  packet.isKeyFrame = number % 3 == 0;
  return packet;
}

TEST_F(StatsSnapshotTest, TotalsAreTheSumsOfTheBranchesWhileTheyCount) {
  const FakeListener<VideoPacket> listener(g_fragmentCallback);
  std::atomic<bool> hasEnded{false};
  std::vector<std::thread> streaming;
  for (const std::int32_t index : {0, 1, 2}) {
    InitializeOpenH264Branch(MakeBranch(index, 64, 64, 30, 200'000, 300'000),
                             1);
  }
  for (const std::int32_t index : {0, 1, 2}) {
    streaming.emplace_back([&hasEnded, index] {
      OpenH264BranchEncoder* record = FindOpenH264Branch(index);
      for (std::uint64_t number = 0; !hasEnded.load(); ++number) {
        // Between two frames, and within each of them.
        std::this_thread::sleep_for(std::chrono::microseconds(number % 2 * 90));
        const MutexLock lock(record->mutex);
        const VideoPacket packet = PacketOf(index, number);
        CountBranchPacket(packet, record->stats);
        CountVideoPacket(packet);
        EmitVideoPacket(std::make_unique<VideoPacket>(packet));
        std::this_thread::sleep_for(std::chrono::microseconds(number % 3 * 9));
      }
    });
  }
  for (int round = 0; round < 200; ++round) {
    if (round % 7 == 3) ResetStatistics();
    ASSERT_EQ(WhatDisagrees(TakeStatsSnapshot()), "") << round;
  }
  hasEnded.store(true);
  for (std::thread& thread : streaming) thread.join();
}

TEST_F(StatsSnapshotTest, AnErrorIsCountedWithItsTextAndResetWithIt) {
  std::atomic<bool> hasEnded{false};
  std::thread streaming([&hasEnded] {
    while (!hasEnded.load()) CountOpenH264Error("it failed");
  });
  for (int round = 0; round < 20'000; ++round) {
    if (round % 2 == 0) ResetStatistics();
    const StatsSnapshot snapshot = TakeStatsSnapshot();
    ASSERT_EQ(snapshot.Of(g_openH264Errors) == 0,
              snapshot.lastOpenH264Error.empty());
  }
  hasEnded.store(true);
  streaming.join();
}

TEST_F(StatsSnapshotTest, HardwareEntriesReportTheirOwnBridgeCounters) {
  VideoBranchStats stats;
  stats.branchIndex = 1;
  stats.bridgeQueuedPackets = 7;
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    g_hardwareBranchStats->push_back(stats);
  }
  g_videoBridgeQueuedByBranch[1].store(99);
  const StatsSnapshot snapshot = TakeStatsSnapshot();
  ASSERT_EQ(snapshot.branches.size(), 1U);
  EXPECT_TRUE(snapshot.branches[0].isHardware);
  EXPECT_EQ(snapshot.branches[0].stats.bridgeQueuedPackets, 7U);
}

TEST_F(StatsSnapshotTest, HardwareEntriesComeFirstAndSoftwareOnesReadTheSlots) {
  VideoBranchStats hardware;
  hardware.branchIndex = 2;
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    g_hardwareBranchStats->push_back(hardware);
  }
  VideoBranchConfig branch;
  branch.branchIndex = 1;
  branch.width = 320;
  branch.height = 180;
  branch.fps = 30;
  branch.bitrate = 1'000'000;
  branch.maxBitrate = 1'000'000;
  InitializeOpenH264Branch(branch, 1);
  g_videoBridgeQueuedByBranch[1].store(4);
  g_videoBridgeDroppedByBranch[1].store(3);
  g_videoBridgeSuppressedDeltaByBranch[1].store(2);
  g_videoBridgeKeyframeRecoveryByBranch[1].store(1);
  const StatsSnapshot snapshot = TakeStatsSnapshot();
  ASSERT_EQ(snapshot.branches.size(), 2U);
  EXPECT_TRUE(snapshot.branches[0].isHardware);
  const BranchReport& software = snapshot.branches[1];
  EXPECT_FALSE(software.isHardware);
  EXPECT_EQ(software.stats.branchIndex, 1);
  EXPECT_EQ(software.stats.bridgeQueuedPackets, 4U);
  EXPECT_EQ(software.stats.bridgeDroppedPackets, 3U);
  EXPECT_EQ(software.stats.bridgeSuppressedDeltaPackets, 2U);
  EXPECT_EQ(software.stats.bridgeKeyframeRecoveryRequests, 1U);
}

}  // namespace
}  // namespace linux_capture
