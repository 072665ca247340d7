#include "video_hardware/bitrate_control.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>

#include "launch_boundary/pipeline_launch.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "support/capture_fixture.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

// Queues stand in for the encoders: two unsigned properties of theirs take the
// place of the encoder's two rates.
class BitrateControlTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    CaptureConfig config = MakeThreeBranchConfig();
    config.branches[0].bitrate = 4'000'000;
    config.branches[1].bitrate = 1'500'000;
    config.branches[2].bitrate = 500'000;
    *g_activeVideoConfig = config;
    g_encoderSelection->hardwareSimulcastFpsSatisfied = true;
    g_activeHardwareProfile->bitrateProperty = "max-size-buffers";
    g_activeHardwareProfile->maxBitrateProperty = "max-size-bytes";
    Launch(
        "queue name=videoEncoder0 queue name=videoEncoder1 "
        "queue name=videoEncoder2");
    g_isCapturing.store(true);
    const std::lock_guard lock(g_hardwareStatsMutex);
    for (const VideoBranchConfig& branch : config.branches) {
      VideoBranchStats stats;
      stats.branchIndex = branch.branchIndex;
      g_hardwareBranchStats->push_back(stats);
    }
  }

  static void Launch(const std::string& text) {
    *g_videoPipeline = LaunchPipeline(text);
  }

  static guint Rate(int branch, const char* property) {
    const GstElementPtr element = FindElement(
        g_videoPipeline->get(), "videoEncoder" + std::to_string(branch));
    guint value = 0;
    g_object_get(element.get(), property, &value, nullptr);
    return value;
  }

  static VideoBranchStats Stats(int branch) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    return *FindHardwareBranchStats(branch);
  }
};

TEST_F(BitrateControlTest, TheTotalIsSplitOverTheEncoders) {
  const AppliedBitrate applied = SetTotalBitrate(3'000'000);
  EXPECT_EQ(applied.requestedBitrate, 3'000'000U);
  ASSERT_EQ(applied.branchBitrates.size(), 3U);
  const std::uint32_t bitrates[] = {1'947'370, 763'157, 289'473};
  const std::uint32_t units[] = {1947, 763, 289};
  for (int i = 0; i < 3; ++i) {
    const auto& branch = applied.branchBitrates[static_cast<std::size_t>(i)];
    EXPECT_EQ(branch.branchIndex, i);
    EXPECT_EQ(branch.bitrate, bitrates[i]);
    EXPECT_EQ(branch.bitrateUnits, units[i]);
    EXPECT_EQ(Rate(i, "max-size-buffers"), units[i]);
    EXPECT_EQ(Rate(i, "max-size-bytes"), units[i]);
    EXPECT_EQ(Stats(i).appliedBitrate, static_cast<std::int32_t>(bitrates[i]));
    EXPECT_EQ(Stats(i).appliedMaxBitrate,
              static_cast<std::int32_t>(bitrates[i]));
  }
}

TEST_F(BitrateControlTest, TheClampedRequestIsReported) {
  EXPECT_EQ(SetTotalBitrate(50'000).requestedBitrate, 100'000U);
  EXPECT_EQ(Stats(0).appliedBitrate, 100'000);
  EXPECT_EQ(SetTotalBitrate(1e12).requestedBitrate, 300'000'000U);
  EXPECT_EQ(Stats(0).appliedBitrate, 4'000'000);
}

TEST_F(BitrateControlTest, ARateBelowOneUnitBecomesOneUnit) {
  g_activeHardwareProfile->bitrateDivisor = 200'000;
  const AppliedBitrate applied = SetTotalBitrate(100'000);
  for (const auto& branch : applied.branchBitrates) {
    EXPECT_EQ(branch.bitrate, 100'000U);
    EXPECT_EQ(branch.bitrateUnits, 1U);
  }
}

TEST_F(BitrateControlTest, ItNeedsARunningCapture) {
  constexpr const char* kMessage =
      "Linux setBitrate requires an active capture pipeline";
  g_isCapturing.store(false);
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
  g_isCapturing.store(true);
  g_videoPipeline->reset();
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
}

TEST_F(BitrateControlTest, ItNeedsAHardwareCapture) {
  constexpr const char* kMessage =
      "Linux setBitrate requires active hardware simulcast FPS capture";
  g_encoderSelection->hardwareSimulcastFpsSatisfied = false;
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
  g_encoderSelection->hardwareSimulcastFpsSatisfied = true;
  g_activeHardwareProfile->bitrateProperty.clear();
  g_activeHardwareProfile->maxBitrateProperty.clear();
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
}

TEST_F(BitrateControlTest, ItNeedsAProfileWithAPeakAndAUnit) {
  constexpr const char* kMessage =
      "Linux hardware profile is missing runtime bitrate property mapping";
  g_activeHardwareProfile->bitrateDivisor = 0;
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
  g_activeHardwareProfile->bitrateDivisor = 1000;
  g_activeHardwareProfile->maxBitrateProperty.clear();
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(1'000'000); }), kMessage);
}

TEST_F(BitrateControlTest, AMissingEncoderLeavesEarlierBranchesChanged) {
  Launch("queue name=videoEncoder0 queue name=videoEncoder2");
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(3'000'000); }),
            "Linux setBitrate could not find GStreamer encoder videoEncoder1");
  EXPECT_EQ(Rate(0, "max-size-buffers"), 1947U);
  EXPECT_EQ(Stats(0).appliedBitrate, 1'947'370);
  EXPECT_EQ(Stats(1).appliedBitrate, 0);
  EXPECT_NE(Rate(2, "max-size-buffers"), 289U);
}

TEST_F(BitrateControlTest, APropertyThatCannotBeSetGivesItsReason) {
  g_activeHardwareProfile->maxBitrateProperty = "silent";
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(3'000'000); }),
            "GStreamer element videoEncoder0 property silent is not an integer "
            "property");
  EXPECT_EQ(Rate(0, "max-size-buffers"), 1947U);
  EXPECT_EQ(Stats(0).appliedBitrate, 0);
  g_activeHardwareProfile->bitrateProperty = "no-such-rate";
  EXPECT_EQ(MessageOf([] { SetTotalBitrate(3'000'000); }),
            "GStreamer element videoEncoder0 does not expose property "
            "no-such-rate");
}

TEST_F(BitrateControlTest, AFailureReleasesTheCaptureMutex) {
  g_isCapturing.store(false);
  EXPECT_NE(MessageOf([] { SetTotalBitrate(1'000'000); }), "");
  const std::unique_lock lock(g_mutex, std::try_to_lock);
  EXPECT_TRUE(lock.owns_lock());
}

}  // namespace
}  // namespace linux_capture
