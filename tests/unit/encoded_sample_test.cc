#include "video_hardware/encoded_sample.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "delivery/callbacks.h"
#include "delivery/video_packet.h"
#include "launch_boundary/pipeline_launch.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "stats/stats_snapshot.h"
#include "support/app_pipeline.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "support/unreadable_buffer.h"

namespace linux_capture {
namespace {

const std::vector<std::uint8_t> kIdr = {0, 0, 0, 1, 0x65, 0x88, 0x84, 0x21};
const std::vector<std::uint8_t> kDelta = {0, 0, 0, 1, 0x41, 0x9a, 0x02};
constexpr const char* kCaps =
    "video/x-h264,stream-format=byte-stream,alignment=au";

class EncodedSampleTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    context_.branchIndex = 1;
    context_.width = 640;
    context_.height = 360;
    context_.fps = 30;
  }

  static void AddStats(std::int32_t branchIndex) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    VideoBranchStats stats;
    stats.branchIndex = branchIndex;
    g_hardwareBranchStats->push_back(stats);
  }

  static VideoBranchStats Stats(std::int32_t branchIndex) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    return *FindHardwareBranchStats(branchIndex);
  }

  GstFlowReturn Handle(const std::vector<std::uint8_t>& bytes, bool deltaFlag,
                       GstClockTime pts = GST_SECOND,
                       GstClockTime duration = GST_CLOCK_TIME_NONE) {
    GstBufferPtr buffer = MakeBuffer(bytes, pts, duration);
    if (deltaFlag) {
      GST_BUFFER_FLAG_SET(buffer.get(), GST_BUFFER_FLAG_DELTA_UNIT);
    }
    pipeline_.Push(std::move(buffer));
    return OnEncodedVideoSample(pipeline_.sink(), &context_);
  }

  AppPipeline pipeline_{kCaps};
  VideoSinkContext context_;
};

TEST_F(EncodedSampleTest, AnAccessUnitBecomesAPacket) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  const std::uint64_t beforeMs = WallClockMs();
  ASSERT_EQ(Handle(kIdr, false, 2 * GST_SECOND, 20 * GST_MSECOND), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  const VideoPacket& packet = *packets[0];
  EXPECT_EQ(packet.payload, kIdr);
  EXPECT_EQ(packet.rawPtsUs, 2'000'000U);
  EXPECT_EQ(packet.rawDtsUs, 0U);
  EXPECT_EQ(packet.timestampUs, 2'000'000U);
  EXPECT_EQ(packet.durationUs, 20'000U);
  EXPECT_GE(packet.enqueuedAtMs, beforeMs);
  EXPECT_LE(packet.enqueuedAtMs, WallClockMs());
  EXPECT_EQ(packet.width, 640);
  EXPECT_EQ(packet.height, 360);
  EXPECT_EQ(packet.branchIndex, 1);
  EXPECT_EQ(packet.temporalIndex, 0);
  EXPECT_TRUE(packet.isKeyFrame);
}

TEST_F(EncodedSampleTest, AMissingDurationIsOneFrame) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  ASSERT_EQ(Handle(kIdr, false), GST_FLOW_OK);
  context_.fps = 0;
  ASSERT_EQ(Handle(kIdr, false), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(packets[0]->durationUs, 33'333U);
  EXPECT_EQ(packets[1]->durationUs, 0U);
}

TEST_F(EncodedSampleTest, TheSinksPipelineGivesTheSessionClock) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  const GstElementPtr started = LaunchPipeline("fakesrc ! fakesink");
  gst_element_set_base_time(started.get(), 10 * GST_SECOND);
  g_sessionClockOriginUs.Set(4'000'000);
  context_.pipeline = started.get();
  ASSERT_EQ(Handle(kIdr, false, GST_SECOND), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->timestampUs, 7'000'000U);
  EXPECT_EQ(packets[0]->rawPtsUs, 1'000'000U);
}

TEST_F(EncodedSampleTest, LayersFollowThePatternAfterAKeyframe) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  Handle(kIdr, false);
  for (int i = 0; i < 8; ++i) Handle(kDelta, true);
  Handle(kIdr, false);
  Handle(kDelta, true);
  std::vector<std::int32_t> layers;
  for (const auto& packet : listener.Take()) {
    layers.push_back(packet->temporalIndex);
  }
  EXPECT_EQ(layers,
            (std::vector<std::int32_t>{0, 2, 1, 2, 0, 2, 1, 2, 0, 0, 2}));
}

TEST_F(EncodedSampleTest, TheDeltaFlagIsTrustedInOneDirectionOnly) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  Handle(kIdr, true);
  Handle(kDelta, false);
  Handle(kDelta, true);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_TRUE(packets[0]->isKeyFrame);
  EXPECT_TRUE(packets[1]->isKeyFrame);
  EXPECT_FALSE(packets[2]->isKeyFrame);
}

TEST_F(EncodedSampleTest, TheBranchRecordCountsWhatPassed) {
  AddStats(1);
  const std::uint64_t beforeMs = WallClockMs();
  Handle(kIdr, false);
  Handle(kDelta, true);
  Handle(kDelta, true);
  const VideoBranchStats stats = Stats(1);
  EXPECT_EQ(stats.rawFrames, 3U);
  EXPECT_EQ(stats.encodedFrames, 3U);
  EXPECT_EQ(stats.keyframes, 1U);
  EXPECT_EQ(stats.bytesEncoded, kIdr.size() + 2 * kDelta.size());
  EXPECT_EQ(stats.temporalFrameCounts,
            (std::array<std::uint64_t, 4>{1, 1, 1, 0}));
  EXPECT_GE(stats.firstFrameAtMs, beforeMs);
  EXPECT_GE(stats.lastFrameAtMs, stats.firstFrameAtMs);
  EXPECT_GE(stats.lastHardwareKeyframeAtMs, stats.firstFrameAtMs);
  EXPECT_EQ(stats.maxHardwareKeyframeRecoveryLatencyMs, 0U);
}

TEST_F(EncodedSampleTest, AReportFindsAPacketAndItsFateOrNeither) {
  AddStats(1);
  const FakeListener<VideoPacket> listener(g_fragmentCallback);
  std::future<StatsSnapshot> report;
  FakeNodeApi::DoDuringNextCall([&report] {
    report = std::async(std::launch::async, TakeStatsSnapshot);
    // One that waits for nothing is there at once.
    report.wait_for(std::chrono::milliseconds(200));
  });
  ASSERT_EQ(Handle(kIdr, false), GST_FLOW_OK);
  const StatsSnapshot snapshot = report.get();
  ASSERT_EQ(snapshot.branches.size(), 1U);
  const VideoBranchStats& stats = snapshot.branches[0].stats;
  EXPECT_EQ(stats.encodedFrames, stats.bridgeQueuedPackets);
  EXPECT_EQ(snapshot.Of(g_framesEncoded),
            snapshot.Of(g_videoBridgeQueuedPackets));
}

TEST_F(EncodedSampleTest, AForcedKeyframeRecordsHowLongItTook) {
  AddStats(1);
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    FindHardwareBranchStats(1)->lastHardwareKeyframeRequestAtMs =
        WallClockMs() - 40;
  }
  Handle(kDelta, true);
  EXPECT_EQ(Stats(1).maxHardwareKeyframeRecoveryLatencyMs, 0U);
  Handle(kIdr, false);
  const VideoBranchStats answered = Stats(1);
  EXPECT_GE(answered.maxHardwareKeyframeRecoveryLatencyMs, 40U);
  EXPECT_GT(answered.lastHardwareKeyframeAtMs,
            answered.lastHardwareKeyframeRequestAtMs);
  // Nothing is pending any more, so a later keyframe raises nothing.
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    FindHardwareBranchStats(1)->maxHardwareKeyframeRecoveryLatencyMs = 0;
  }
  Handle(kIdr, false);
  EXPECT_EQ(Stats(1).maxHardwareKeyframeRecoveryLatencyMs, 0U);
}

TEST_F(EncodedSampleTest, ARequestFromALaterClockRecordsNoLatency) {
  AddStats(1);
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    FindHardwareBranchStats(1)->lastHardwareKeyframeRequestAtMs =
        WallClockMs() + 3'600'000;
  }
  Handle(kIdr, false);
  EXPECT_EQ(Stats(1).maxHardwareKeyframeRecoveryLatencyMs, 0U);
}

TEST_F(EncodedSampleTest, ProcessWideCountersMoveWithoutABranchRecord) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  Handle(kIdr, false, GST_SECOND);
  Handle(kDelta, true, 2 * GST_SECOND);
  EXPECT_EQ(listener.Take().size(), 2U);
  EXPECT_EQ(g_framesCaptured.Get(), 2U);
  EXPECT_EQ(g_framesEncoded.Get(), 2U);
  EXPECT_EQ(g_keyframesEncoded.Get(), 1U);
  EXPECT_EQ(g_deltaFramesEncoded.Get(), 1U);
  EXPECT_EQ(g_cpuMappedVideoFrames.Get(), 0U);
  EXPECT_EQ(g_firstVideoTimestampUs.Get(), 1'000'000U);
  EXPECT_EQ(g_lastVideoTimestampUs.Get(), 2'000'000U);
}

TEST_F(EncodedSampleTest, TheCaptureSizeFollowsBranchZeroOnly) {
  g_width.Set(1);
  g_height.Set(2);
  Handle(kIdr, false);
  EXPECT_EQ(g_width.Get(), 1);
  EXPECT_EQ(g_height.Get(), 2);
  context_.branchIndex = 0;
  Handle(kIdr, false);
  EXPECT_EQ(g_width.Get(), 640);
  EXPECT_EQ(g_height.Get(), 360);
}

TEST_F(EncodedSampleTest, TheCapsAreKept) {
  Handle(kIdr, false);
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(g_lastVideoCaps->rfind("video/x-h264", 0), 0U);
  EXPECT_NE(g_lastVideoCaps->find("byte-stream"), std::string::npos);
}

TEST_F(EncodedSampleTest, WithoutAContextTheActiveConfigurationServes) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  g_width.Set(1920);
  g_height.Set(1080);
  g_activeFps.Set(50);
  pipeline_.Push(MakeBuffer(kIdr, GST_SECOND));
  ASSERT_EQ(OnEncodedVideoSample(pipeline_.sink(), nullptr), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->branchIndex, 0);
  EXPECT_EQ(packets[0]->width, 1920);
  EXPECT_EQ(packets[0]->height, 1080);
  EXPECT_EQ(packets[0]->durationUs, 20'000U);
}

TEST_F(EncodedSampleTest, TheEndOfTheStreamIsAnErrorThatCountsNothing) {
  pipeline_.EndStream();
  EXPECT_EQ(OnEncodedVideoSample(pipeline_.sink(), &context_), GST_FLOW_ERROR);
  EXPECT_EQ(g_framesCaptured.Get(), 0U);
}

TEST_F(EncodedSampleTest, ABufferThatCannotBeReadIsAnErrorThatCountsNothing) {
  pipeline_.Push(MakeUnreadableBuffer(100, GST_SECOND));
  EXPECT_EQ(OnEncodedVideoSample(pipeline_.sink(), &context_), GST_FLOW_ERROR);
  EXPECT_EQ(g_framesCaptured.Get(), 0U);
  EXPECT_EQ(g_framesEncoded.Get(), 0U);
}

TEST_F(EncodedSampleTest, AnEmptyAccessUnitIsHandedOn) {
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  EXPECT_EQ(Handle({}, true), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0]->payload.empty());
  EXPECT_FALSE(packets[0]->isKeyFrame);
}

TEST(SyntheticTemporalIndexTest, APictureBeforeAnyKeyframeStartsThePattern) {
  g_hardwareSyntheticTemporalSequenceByBranch[3].store(0);
  std::vector<std::uint32_t> layers;
  for (int i = 0; i < 5; ++i) {
    layers.push_back(ResolveHardwareSyntheticTemporalIndex(3, false));
  }
  EXPECT_EQ(layers, (std::vector<std::uint32_t>{0, 2, 1, 2, 0}));
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(3, true), 0U);
  EXPECT_EQ(g_hardwareSyntheticTemporalSequenceByBranch[3].load(), 1U);
  g_hardwareSyntheticTemporalSequenceByBranch[3].store(0);
}

TEST(SyntheticTemporalIndexTest, UntrackedBranchesStayAtLayerZero) {
  for (auto& sequence : g_hardwareSyntheticTemporalSequenceByBranch) {
    sequence.store(1);
  }
  for (const std::int32_t branch : {16, 17, 1000, -1}) {
    EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(branch, false), 0U);
    EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(branch, true), 0U);
  }
  for (auto& sequence : g_hardwareSyntheticTemporalSequenceByBranch) {
    EXPECT_EQ(sequence.load(), 1U);
    sequence.store(0);
  }
}

TEST(SyntheticTemporalIndexTest, BranchesHaveTheirOwnSequences) {
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(4, true), 0U);
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(5, true), 0U);
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(4, false), 2U);
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(4, false), 1U);
  EXPECT_EQ(ResolveHardwareSyntheticTemporalIndex(5, false), 2U);
  g_hardwareSyntheticTemporalSequenceByBranch[4].store(0);
  g_hardwareSyntheticTemporalSequenceByBranch[5].store(0);
}

}  // namespace
}  // namespace linux_capture
