#include "video_software/openh264_branches.h"

#include <algorithm>

#include "base/c_callback.h"
#include "base/coded_error.h"
#include "base/stage_log.h"
#include "state/capture_state.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

[[noreturn]] void FailEncoderStep(const char* prefix,
                                  const VideoBranchConfig& branch,
                                  long result) {
  throw CodedError(error_code::kEncoderFailed,
                   prefix + std::to_string(branch.branchIndex) +
                       " result=" + std::to_string(result));
}

std::string OpenH264VersionText() {
  OpenH264Version version{};
  WelsGetCodecVersionEx(&version);
  return std::to_string(version.uMajor) + "." + std::to_string(version.uMinor) +
         "." + std::to_string(version.uRevision);
}

// Left to itself the encoder prints its warnings and waits for whoever reads
// them: a full pipe as standard error would hold up the JavaScript thread.
void OnEncoderTrace(void* /*context*/, int /*level*/, const char* message) {
  WriteErrorOutput(std::string(message) + "\n");
}

void TakeOverTrace(ISVCEncoder* encoder) {
  WelsTraceCallback callback = NoThrow<&OnEncoderTrace>;
  encoder->SetOption(ENCODER_OPTION_TRACE_CALLBACK, &callback);
}

void DescribeSelection() REQUIRES(g_mutex) {
  *g_selectedVideoEncoder = "openh264-direct-" + OpenH264VersionText();
  EncoderSelection selection;
  selection.selectedProvider = "openh264-development";
  selection.encoderProvider = "openh264";
  selection.temporalMetadataSource = "openh264-layer-uiTemporalId";
  *g_encoderSelection = std::move(selection);
}

}  // namespace

std::uint32_t OpenH264IntraPeriod(std::int32_t fps,
                                  std::int32_t temporalLayers) {
  const std::int64_t step = std::int64_t{1} << temporalLayers;
  const std::int64_t wanted = std::max<std::int64_t>(std::int64_t{2} * fps, 1);
  const std::int64_t rounded = (wanted + step - 1) / step * step;
  return static_cast<std::uint32_t>(std::max(rounded, step));
}

void ApplyBranchParameters(const VideoBranchConfig& branch,
                           std::int32_t temporalLayerCount,
                           SEncParamExt& parameters) {
  const std::int32_t layers = std::clamp(temporalLayerCount, 1, 3);
  const auto fps = static_cast<float>(branch.fps);

  parameters.iUsageType = SCREEN_CONTENT_REAL_TIME;
  parameters.iPicWidth = branch.width;
  parameters.iPicHeight = branch.height;
  parameters.iTargetBitrate = branch.bitrate;
  parameters.iRCMode = RC_BITRATE_MODE;
  parameters.fMaxFrameRate = fps;
  parameters.iTemporalLayerNum = layers;
  parameters.iSpatialLayerNum = 1;

  SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
  layer.iVideoWidth = branch.width;
  layer.iVideoHeight = branch.height;
  layer.fFrameRate = fps;
  layer.iSpatialBitrate = branch.bitrate;
  layer.iMaxSpatialBitrate = branch.maxBitrate;
  layer.uiProfileIdc = PRO_BASELINE;
  layer.uiLevelIdc = LEVEL_UNKNOWN;
  layer.iDLayerQp = 0;
  layer.sSliceArgument.uiSliceMode = SM_SINGLE_SLICE;
  layer.sSliceArgument.uiSliceNum = 1;
  // Every stream says full-range BT.709; the launched pipeline is pinned to
  // the same, so that players show the colours of the screen.
  layer.bVideoSignalTypePresent = true;
  layer.uiVideoFormat = 0;
  layer.bFullRange = true;
  layer.bColorDescriptionPresent = true;
  layer.uiColorPrimaries = 1;
  layer.uiTransferCharacteristics = 1;
  layer.uiColorMatrix = 1;
  layer.bAspectRatioPresent = false;
  layer.eAspectRatio = ASP_UNSPECIFIED;

  parameters.iComplexityMode = LOW_COMPLEXITY;
  parameters.uiIntraPeriod = OpenH264IntraPeriod(branch.fps, layers);
  parameters.iNumRefFrame = AUTO_REF_PIC_COUNT;
  parameters.eSpsPpsIdStrategy = INCREASING_ID;
  parameters.bPrefixNalAddingCtrl = true;
  parameters.bEnableSSEI = false;
  parameters.bSimulcastAVC = true;
  parameters.iPaddingFlag = 0;
  parameters.iEntropyCodingModeFlag = 0;
  parameters.bEnableFrameSkip = false;
  parameters.iMaxBitrate = branch.maxBitrate;
  parameters.bEnableLongTermReference = false;
  parameters.iMultipleThreadIdc = 1;
  parameters.bUseLoadBalancing = false;
  parameters.iLoopFilterDisableIdc = 0;
  parameters.bEnableDenoise = false;
  parameters.bEnableBackgroundDetection = false;
  parameters.bEnableAdaptiveQuant = true;
  parameters.bEnableFrameCroppingFlag = true;
  parameters.bEnableSceneChangeDetect = false;
}

void InitializeOpenH264Branch(const VideoBranchConfig& branch,
                              std::int32_t temporalLayerCount) {
  ISVCEncoder* created = nullptr;
  const int createResult = WelsCreateSVCEncoder(&created);
  OpenH264EncoderPtr encoder(created);
  if (createResult != 0 || !encoder) {
    // Untested: the library refuses this only where memory runs out.
    FailEncoderStep("WelsCreateSVCEncoder failed for branch ", branch,
                    createResult);
  }
  TakeOverTrace(encoder.get());
  SEncParamExt parameters{};
  if (const int result = encoder->GetDefaultParams(&parameters); result != 0) {
    // Untested: the library refuses this only where memory runs out.
    FailEncoderStep("OpenH264 GetDefaultParams failed for branch ", branch,
                    result);
  }
  ApplyBranchParameters(branch, temporalLayerCount, parameters);
  if (const int result = encoder->InitializeExt(&parameters); result != 0) {
    FailEncoderStep("OpenH264 InitializeExt failed for branch ", branch,
                    result);
  }
  int format = videoFormatI420;
  if (const int result = encoder->SetOption(ENCODER_OPTION_DATAFORMAT, &format);
      result != 0) {
    // Untested: the library refuses this only where memory runs out.
    encoder->Uninitialize();
    FailEncoderStep("OpenH264 SetOption(DATAFORMAT=I420) failed for branch ",
                    branch, result);
  }
  g_openH264Branches->push_back(
      std::make_unique<OpenH264BranchEncoder>(branch, std::move(encoder)));
}

void InitializeOpenH264Branches(const CaptureConfig& config) {
  DestroyOpenH264Branches();
  for (const VideoBranchConfig& branch : config.branches) {
    InitializeOpenH264Branch(branch, config.temporalLayerCount);
  }
  DescribeSelection();
}

}  // namespace linux_capture
