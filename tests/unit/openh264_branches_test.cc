#include "video_software/openh264_branches.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

#include "state/capture_state.h"
#include "state/openh264_encoders.h"
#include "support/capture_fixture.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

VideoBranchConfig Good(std::int32_t index) {
  return MakeBranch(index, 64, 64, 30, 200'000, 300'000);
}

// The library refuses an empty picture.
VideoBranchConfig Refused(std::int32_t index) {
  return MakeBranch(index, 0, 0, 30, 200'000, 300'000);
}

struct PeriodCase {
  std::int32_t fps;
  std::int32_t layers;
  std::uint32_t period;
};

class IntraPeriodTest : public ::testing::TestWithParam<PeriodCase> {};

TEST_P(IntraPeriodTest, TwoSecondsRoundedUpToAWholePattern) {
  EXPECT_EQ(OpenH264IntraPeriod(GetParam().fps, GetParam().layers),
            GetParam().period);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, IntraPeriodTest,
    ::testing::Values(PeriodCase{30, 3, 64}, PeriodCase{30, 2, 60},
                      PeriodCase{30, 1, 60}, PeriodCase{25, 3, 56},
                      PeriodCase{7, 3, 16}, PeriodCase{15, 2, 32},
                      PeriodCase{1, 1, 2}, PeriodCase{1, 3, 8},
                      PeriodCase{0, 1, 2}, PeriodCase{0, 2, 4},
                      PeriodCase{0, 3, 8}, PeriodCase{-5, 3, 8},
                      PeriodCase{2'147'483'647, 1, 4'294'967'294U}));

class ParametersTest : public ::testing::Test {
 protected:
  static SEncParamExt Applied(std::int32_t layers) {
    SEncParamExt parameters;
    // Whatever the defaults are, the documented values replace them.
    std::memset(static_cast<void*>(&parameters), 0x5a, sizeof(parameters));
    ApplyBranchParameters(MakeBranch(1, 1280, 720, 25, 2'000'000, 2'500'000),
                          layers, parameters);
    return parameters;
  }
};

TEST_F(ParametersTest, ThePictureAndItsRatesAreTheBranches) {
  const SEncParamExt p = Applied(3);
  EXPECT_EQ(p.iUsageType, SCREEN_CONTENT_REAL_TIME);
  EXPECT_EQ(p.iPicWidth, 1280);
  EXPECT_EQ(p.iPicHeight, 720);
  EXPECT_EQ(p.iTargetBitrate, 2'000'000);
  EXPECT_EQ(p.iMaxBitrate, 2'500'000);
  EXPECT_EQ(p.iRCMode, RC_BITRATE_MODE);
  EXPECT_EQ(p.fMaxFrameRate, 25.0F);
  EXPECT_EQ(p.iTemporalLayerNum, 3);
  EXPECT_EQ(p.iSpatialLayerNum, 1);
  EXPECT_EQ(p.uiIntraPeriod, 56U);
}

TEST_F(ParametersTest, TheOneSpatialLayerIsTheBranch) {
  const SSpatialLayerConfig& layer = Applied(1).sSpatialLayers[0];
  EXPECT_EQ(layer.iVideoWidth, 1280);
  EXPECT_EQ(layer.iVideoHeight, 720);
  EXPECT_EQ(layer.fFrameRate, 25.0F);
  EXPECT_EQ(layer.iSpatialBitrate, 2'000'000);
  EXPECT_EQ(layer.iMaxSpatialBitrate, 2'500'000);
  EXPECT_EQ(layer.uiProfileIdc, PRO_BASELINE);
  EXPECT_EQ(layer.uiLevelIdc, LEVEL_UNKNOWN);
  EXPECT_EQ(layer.iDLayerQp, 0);
  EXPECT_EQ(layer.sSliceArgument.uiSliceMode, SM_SINGLE_SLICE);
  EXPECT_EQ(layer.sSliceArgument.uiSliceNum, 1U);
}

TEST_F(ParametersTest, TheStreamSaysFullRangeBt709) {
  const SSpatialLayerConfig& layer = Applied(1).sSpatialLayers[0];
  EXPECT_TRUE(layer.bVideoSignalTypePresent);
  EXPECT_EQ(layer.uiVideoFormat, 0);
  EXPECT_TRUE(layer.bFullRange);
  EXPECT_TRUE(layer.bColorDescriptionPresent);
  EXPECT_EQ(layer.uiColorPrimaries, 1);
  EXPECT_EQ(layer.uiTransferCharacteristics, 1);
  EXPECT_EQ(layer.uiColorMatrix, 1);
  EXPECT_FALSE(layer.bAspectRatioPresent);
  EXPECT_EQ(layer.eAspectRatio, 0);
}

TEST_F(ParametersTest, TheToolsAreTheDocumentedOnes) {
  const SEncParamExt p = Applied(1);
  EXPECT_EQ(p.iComplexityMode, LOW_COMPLEXITY);
  EXPECT_EQ(p.iNumRefFrame, -1);
  EXPECT_EQ(p.eSpsPpsIdStrategy, INCREASING_ID);
  EXPECT_TRUE(p.bPrefixNalAddingCtrl);
  EXPECT_FALSE(p.bEnableSSEI);
  EXPECT_TRUE(p.bSimulcastAVC);
  EXPECT_EQ(p.iPaddingFlag, 0);
  EXPECT_EQ(p.iEntropyCodingModeFlag, 0);
  EXPECT_FALSE(p.bEnableFrameSkip);
  EXPECT_FALSE(p.bEnableLongTermReference);
  EXPECT_EQ(p.iMultipleThreadIdc, 1);
  EXPECT_FALSE(p.bUseLoadBalancing);
  EXPECT_EQ(p.iLoopFilterDisableIdc, 0);
  EXPECT_FALSE(p.bEnableDenoise);
  EXPECT_FALSE(p.bEnableBackgroundDetection);
  EXPECT_TRUE(p.bEnableAdaptiveQuant);
  EXPECT_TRUE(p.bEnableFrameCroppingFlag);
  EXPECT_FALSE(p.bEnableSceneChangeDetect);
}

TEST_F(ParametersTest, LayersAreClampedToOneToThree) {
  EXPECT_EQ(Applied(0).iTemporalLayerNum, 1);
  EXPECT_EQ(Applied(-4).iTemporalLayerNum, 1);
  EXPECT_EQ(Applied(2).iTemporalLayerNum, 2);
  EXPECT_EQ(Applied(5).iTemporalLayerNum, 3);
  EXPECT_EQ(Applied(5).uiIntraPeriod, 56U);
}

TEST_F(ParametersTest, TheOtherFieldsKeepTheLibrarysDefaults) {
  SEncParamExt defaults{};
  ISVCEncoder* created = nullptr;
  ASSERT_EQ(WelsCreateSVCEncoder(&created), 0);
  const OpenH264EncoderPtr encoder(created);
  ASSERT_EQ(encoder->GetDefaultParams(&defaults), 0);
  SEncParamExt applied = defaults;
  ApplyBranchParameters(Good(0), 1, applied);
  EXPECT_EQ(applied.iMaxQp, defaults.iMaxQp);
  EXPECT_EQ(applied.iMinQp, defaults.iMinQp);
  EXPECT_EQ(applied.uiMaxNalSize, defaults.uiMaxNalSize);
  EXPECT_EQ(applied.iLoopFilterAlphaC0Offset,
            defaults.iLoopFilterAlphaC0Offset);
  EXPECT_EQ(applied.iLoopFilterBetaOffset, defaults.iLoopFilterBetaOffset);
  EXPECT_EQ(applied.iLTRRefNum, defaults.iLTRRefNum);
  EXPECT_EQ(applied.iLtrMarkPeriod, defaults.iLtrMarkPeriod);
}

class OpenH264BranchesTest : public CaptureFixture {
 protected:
  static CaptureConfig Config(std::vector<VideoBranchConfig> branches) {
    CaptureConfig config;
    config.branches = std::move(branches);
    return config;
  }

  static void Initialise(const CaptureConfig& config) {
    const std::lock_guard lock(g_mutex);
    InitializeOpenH264Branches(config);
  }
};

TEST_F(OpenH264BranchesTest, EveryBranchGetsAnEncoderInOrder) {
  Initialise(Config({Good(2), Good(0)}));
  ASSERT_EQ(g_openH264Branches->size(), 2U);
  const OpenH264BranchEncoder& first = *(*g_openH264Branches)[0];
  EXPECT_EQ(first.branch, Good(2));
  EXPECT_NE(first.encoder, nullptr);
  EXPECT_EQ(first.stats.branchIndex, 2);
  EXPECT_EQ(first.stats.width, 64);
  EXPECT_EQ(first.stats.height, 64);
  EXPECT_EQ(first.stats.fps, 30);
  EXPECT_EQ(first.stats.appliedBitrate, 0);
  EXPECT_EQ((*g_openH264Branches)[1]->branch.branchIndex, 0);
}

TEST_F(OpenH264BranchesTest, TheEncoderTakesI420) {
  Initialise(Config({Good(0)}));
  int format = 0;
  ASSERT_EQ((*g_openH264Branches)[0]->encoder->GetOption(
                ENCODER_OPTION_DATAFORMAT, &format),
            0);
  EXPECT_EQ(format, videoFormatI420);
}

TEST_F(OpenH264BranchesTest, TheSessionIsDescribedAsSoftware) {
  g_encoderSelection->isHardwareEncoder = true;
  g_encoderSelection->providerTier = "hardware-simulcast-fps";
  g_encoderSelection->dmaBufNegotiated = true;
  Initialise(Config({Good(0)}));
  OpenH264Version version{};
  WelsGetCodecVersionEx(&version);
  EXPECT_EQ(*g_selectedVideoEncoder, "openh264-direct-" +
                                         std::to_string(version.uMajor) + "." +
                                         std::to_string(version.uMinor) + "." +
                                         std::to_string(version.uRevision));
  const EncoderSelection& selection = *g_encoderSelection;
  EXPECT_EQ(selection.selectedProvider, "openh264-development");
  EXPECT_EQ(selection.encoderProvider, "openh264");
  EXPECT_EQ(selection.providerTier, "degraded-cpu");
  EXPECT_EQ(selection.hardwareParityMode, "none");
  EXPECT_FALSE(selection.isHardwareEncoder);
  EXPECT_TRUE(selection.isDegradedCpuFallback);
  EXPECT_FALSE(selection.hardwareTransportSatisfied);
  EXPECT_FALSE(selection.hardwareSimulcastFpsSatisfied);
  EXPECT_FALSE(selection.dmaBufNegotiated);
  EXPECT_EQ(selection.sourceMemoryFeature, "SystemMemory");
  EXPECT_EQ(selection.encoderInputMemoryFeature, "SystemMemoryI420");
  EXPECT_EQ(selection.temporalMetadataSource, "openh264-layer-uiTemporalId");
}

TEST_F(OpenH264BranchesTest, ARefusedBranchIsNamedAndLeavesTheEarlierOnes) {
  const std::string message = MessageOf([] {
    Initialise(Config({Good(0), Refused(1), Good(2)}));
  });
  constexpr const char* kPrefix =
      "OpenH264 InitializeExt failed for branch 1 result=";
  ASSERT_EQ(message.rfind(kPrefix, 0), 0U) << message;
  EXPECT_NE(std::stoi(message.substr(std::strlen(kPrefix))), 0);
  ASSERT_EQ(g_openH264Branches->size(), 1U);
  EXPECT_EQ((*g_openH264Branches)[0]->branch.branchIndex, 0);
  EXPECT_EQ(g_encoderSelection->selectedProvider, "");
  Initialise(Config({Good(5)}));
  ASSERT_EQ(g_openH264Branches->size(), 1U);
  EXPECT_EQ((*g_openH264Branches)[0]->branch.branchIndex, 5);
}

TEST_F(OpenH264BranchesTest, DestroyingAnEmptyListDoesNothing) {
  DestroyOpenH264Branches();
  EXPECT_TRUE(g_openH264Branches->empty());
}

TEST_F(OpenH264BranchesTest, TheFirstRecordOfAnIndexIsFound) {
  Initialise(Config({Good(1), Good(0), Good(1)}));
  EXPECT_EQ(FindOpenH264Branch(1), (*g_openH264Branches)[0].get());
  EXPECT_EQ(FindOpenH264Branch(0), (*g_openH264Branches)[1].get());
  EXPECT_EQ(FindOpenH264Branch(7), nullptr);
}

TEST_F(OpenH264BranchesTest, AResetKeepsOnlyWhatTheBranchIs) {
  Initialise(Config({Good(3)}));
  VideoBranchStats& stats = (*g_openH264Branches)[0]->stats;
  stats = VideoBranchStats{};
  stats.encodedFrames = 5;
  stats.appliedBitrate = 9;
  stats.temporalFrameCounts = {1, 2, 3, 4};
  OpenH264Pause().ResetStats();
  EXPECT_EQ(stats.branchIndex, 3);
  EXPECT_EQ(stats.width, 64);
  EXPECT_EQ(stats.height, 64);
  EXPECT_EQ(stats.fps, 30);
  EXPECT_EQ(stats.encodedFrames, 0U);
  EXPECT_EQ(stats.appliedBitrate, 0);
  EXPECT_EQ(stats.temporalFrameCounts, (std::array<std::uint64_t, 4>{}));
}

}  // namespace
}  // namespace linux_capture
