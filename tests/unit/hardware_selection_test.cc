#include "video_hardware/hardware_selection.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "support/capture_fixture.h"
#include "support/stage_lines.h"
#include "video_hardware/encoder_profiles.h"
#include "video_software/openh264_branches.h"

namespace linux_capture {
namespace {

constexpr const char* kCouldNotSelect =
    "Linux hardware encoderRequirement could not select NVIDIA hardware "
    "simulcast FPS profile";

ProviderProbeReport Report(const std::string& encoder, bool selectable) {
  ProviderProbeReport report;
  report.provider = "gstreamer-" + encoder;
  report.encoder = encoder;
  report.providerTier = "hardware-simulcast-fps";
  report.selectableForTransport = selectable;
  report.selectableForSimulcastFps = selectable;
  return report;
}

class HardwareSelectionTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    SetReports({Report("nvh264enc", true), Report("nvautogpuh264enc", true)});
  }

  static void SetReports(std::vector<ProviderProbeReport> reports) {
    *g_providerProbeReports = std::move(reports);
  }

  static void Select(const CaptureConfig& config) {
    const std::lock_guard lock(g_mutex);
    SelectHardwareProvider(config);
  }
};

TEST_F(HardwareSelectionTest, TheFirstNvencProviderIsChosen) {
  Select(MakeThreeBranchConfig());
  EXPECT_EQ(g_encoderSelection->selectedProvider, "gstreamer-nvh264enc");
  EXPECT_EQ(g_encoderSelection->encoderProvider, "nvh264enc");
  EXPECT_EQ(*g_selectedVideoEncoder, "gstreamer-nvh264enc");
  EXPECT_EQ(*g_activeHardwareProfile, GStreamerHardwareEncoderProfiles()[0]);
}

TEST_F(HardwareSelectionTest, TheSecondNvencProviderIsChosenWithoutTheFirst) {
  SetReports({Report("nvh264enc", false), Report("nvautogpuh264enc", true)});
  Select(MakeThreeBranchConfig());
  EXPECT_EQ(g_encoderSelection->selectedProvider, "gstreamer-nvautogpuh264enc");
  EXPECT_EQ(g_encoderSelection->encoderProvider, "nvautogpuh264enc");
  EXPECT_EQ(*g_selectedVideoEncoder, "gstreamer-nvautogpuh264enc");
  EXPECT_EQ(*g_activeHardwareProfile, GStreamerHardwareEncoderProfiles()[1]);
}

TEST_F(HardwareSelectionTest, TheSelectionDescribesAHardwareSession) {
  Select(MakeThreeBranchConfig());
  const EncoderSelection& selection = *g_encoderSelection;
  EXPECT_EQ(selection.providerTier, "hardware-simulcast-fps");
  EXPECT_EQ(selection.hardwareParityMode, "simulcast-fps-presets");
  EXPECT_EQ(selection.sourceMemoryFeature, "DMABuf");
  EXPECT_EQ(selection.encoderInputMemoryFeature, "GLMemory");
  EXPECT_EQ(selection.temporalMetadataSource, "synthetic-l1t3-simulcast-dto");
  EXPECT_TRUE(selection.isHardwareEncoder);
  EXPECT_FALSE(selection.isDegradedCpuFallback);
  EXPECT_TRUE(selection.hardwareTransportSatisfied);
  EXPECT_TRUE(selection.hardwareSimulcastFpsSatisfied);
  EXPECT_TRUE(selection.dmaBufNegotiated);
}

TEST_F(HardwareSelectionTest, EveryStepWritesItsStage) {
  EXPECT_EQ(StagesDuring([] { Select(MakeThreeBranchConfig()); }),
            (std::vector<std::string>{
                "captureSetup:hardware-select:begin",
                "captureSetup:hardware-select:selected",
                "captureSetup:hardware-profile-found encoder=nvh264enc",
                "captureSetup:hardware-provider-initialized"}));
}

TEST_F(HardwareSelectionTest, TemporalLayersAreRefusedBeforeAnyProvider) {
  SetReports({});
  CaptureConfig config = MakeThreeBranchConfig();
  config.temporalLayerCount = 3;
  EXPECT_EQ(MessageOf([&] { Select(config); }),
            "Linux hardware encoder remains flat NVENC simulcast; "
            "capture.temporalLayerCount must be 1");
}

TEST_F(HardwareSelectionTest, ReportsThatDoNotQualifyAreNotChosen) {
  ProviderProbeReport otherTier = Report("nvh264enc", true);
  otherTier.providerTier = "not-runnable";
  for (const auto& report :
       {Report("nvh264enc", false), Report("vah264enc", true), otherTier}) {
    SetReports({report});
    EXPECT_EQ(MessageOf([] { Select(MakeThreeBranchConfig()); }),
              kCouldNotSelect);
  }
  SetReports({});
  EXPECT_EQ(MessageOf([] { Select(MakeThreeBranchConfig()); }),
            kCouldNotSelect);
  EXPECT_FALSE(g_encoderSelection->isHardwareEncoder);
}

TEST_F(HardwareSelectionTest, AReportWithoutAMatchingProfileIsRefused) {
  ProviderProbeReport stranger = Report("nvh264enc", true);
  stranger.provider = "gstreamer-other";
  SetReports({stranger});
  EXPECT_EQ(MessageOf([] { Select(MakeThreeBranchConfig()); }),
            "selected provider does not have a runnable GStreamer hardware "
            "profile");
  EXPECT_EQ(*g_activeHardwareProfile, GStreamerHardwareEncoderProfile{});
}

TEST_F(HardwareSelectionTest, EveryBranchStartsWithFreshStatistics) {
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    VideoBranchStats old;
    old.branchIndex = 9;
    old.encodedFrames = 5;
    g_hardwareBranchStats->push_back(old);
  }
  const CaptureConfig config = MakeThreeBranchConfig();
  Select(config);
  const std::lock_guard lock(g_hardwareStatsMutex);
  ASSERT_EQ(g_hardwareBranchStats->size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    const VideoBranchStats& stats = (*g_hardwareBranchStats)[i];
    const VideoBranchConfig& branch = config.branches[i];
    EXPECT_EQ(stats.branchIndex, branch.branchIndex);
    EXPECT_EQ(stats.width, branch.width);
    EXPECT_EQ(stats.height, branch.height);
    EXPECT_EQ(stats.fps, branch.fps);
    EXPECT_EQ(stats.appliedBitrate, branch.bitrate);
    EXPECT_EQ(stats.appliedMaxBitrate, branch.maxBitrate);
    EXPECT_EQ(stats.encodedFrames, 0U);
  }
}

TEST_F(HardwareSelectionTest, EveryTrackedBranchWaitsForItsFirstKeyframe) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.branches[1].branchIndex = 15;
  config.branches[2].branchIndex = 16;
  g_hardwareSyntheticTemporalSequenceByBranch[0].store(7);
  g_hardwareSyntheticTemporalSequenceByBranch[15].store(7);
  g_hardwareSyntheticTemporalSequenceByBranch[1].store(7);
  Select(config);
  EXPECT_TRUE(g_videoBridgeNeedsKeyframeRecovery[0].load());
  EXPECT_TRUE(g_videoBridgeNeedsKeyframeRecovery[15].load());
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[1].load());
  EXPECT_EQ(g_hardwareSyntheticTemporalSequenceByBranch[0].load(), 0U);
  EXPECT_EQ(g_hardwareSyntheticTemporalSequenceByBranch[15].load(), 0U);
  EXPECT_EQ(g_hardwareSyntheticTemporalSequenceByBranch[1].load(), 7U);
}

TEST_F(HardwareSelectionTest, LeftOverSoftwareEncodersAreDestroyed) {
  InitializeOpenH264Branch(MakeBranch(0, 64, 64, 30, 200'000, 300'000), 1);
  Select(MakeThreeBranchConfig());
  EXPECT_TRUE(g_openH264Branches->empty());
}

}  // namespace
}  // namespace linux_capture
