#include "video_hardware/hardware_selection.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/coded_error.h"
#include "base/stage_log.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "video_hardware/encoder_profiles.h"

namespace linux_capture {
namespace {

const ProviderProbeReport& SelectableNvencReport() REQUIRES(g_mutex) {
  const auto& reports = *g_providerProbeReports;
  const auto found = std::find_if(
      reports.begin(), reports.end(), [](const ProviderProbeReport& report) {
        return report.selectableForSimulcastFps &&
               report.providerTier == "hardware-simulcast-fps" &&
               (report.encoder == "nvh264enc" ||
                report.encoder == "nvautogpuh264enc");
      });
  if (found == reports.end()) {
    throw CodedError(
        error_code::kHardwareUnavailable,
        "Linux hardware encoderRequirement could not select NVIDIA hardware "
        "simulcast FPS profile");
  }
  return *found;
}

GStreamerHardwareEncoderProfile RunnableProfileOf(
    const ProviderProbeReport& report) {
  for (auto& profile : GStreamerHardwareEncoderProfiles()) {
    if (profile.providerId == report.provider &&
        profile.elementFactory == report.encoder && profile.runnable) {
      return std::move(profile);
    }
  }
  throw CodedError(
      error_code::kHardwareUnavailable,
      "selected provider does not have a runnable GStreamer hardware profile");
}

void StartHardwareBranchStats(const CaptureConfig& config) {
  std::vector<VideoBranchStats> fresh;
  fresh.reserve(config.branches.size());
  for (const VideoBranchConfig& branch : config.branches) {
    VideoBranchStats stats;
    stats.branchIndex = branch.branchIndex;
    stats.width = branch.width;
    stats.height = branch.height;
    stats.fps = branch.fps;
    stats.appliedBitrate = branch.bitrate;
    stats.appliedMaxBitrate = branch.maxBitrate;
    fresh.push_back(stats);
  }
  const MutexLock lock(g_hardwareStatsMutex);
  *g_hardwareBranchStats = std::move(fresh);
}

void DescribeHardwareSelection(const ProviderProbeReport& report)
    REQUIRES(g_mutex) {
  *g_selectedVideoEncoder = "gstreamer-" + report.encoder;
  EncoderSelection selection;
  selection.selectedProvider = report.provider;
  selection.encoderProvider = report.encoder;
  selection.providerTier = "hardware-simulcast-fps";
  selection.hardwareParityMode = "simulcast-fps-presets";
  selection.sourceMemoryFeature = "DMABuf";
  selection.encoderInputMemoryFeature = "GLMemory";
  selection.temporalMetadataSource = "synthetic-l1t3-simulcast-dto";
  selection.isHardwareEncoder = true;
  selection.isDegradedCpuFallback = false;
  selection.hardwareTransportSatisfied = true;
  selection.hardwareSimulcastFpsSatisfied = true;
  selection.dmaBufNegotiated = true;
  *g_encoderSelection = std::move(selection);
}

// A branch delivers nothing before its first keyframe: a delta picture that
// came first could not be decoded.
void AwaitFirstKeyframes(const CaptureConfig& config) {
  for (const VideoBranchConfig& branch : config.branches) {
    if (!IsTrackedBranch(branch.branchIndex)) continue;
    const auto slot = static_cast<std::size_t>(branch.branchIndex);
    g_videoBridgeNeedsKeyframeRecovery[slot].exchange(true);
    g_hardwareSyntheticTemporalSequenceByBranch[slot].exchange(0);
  }
}

}  // namespace

void SelectHardwareProvider(const CaptureConfig& config) {
  LogCaptureStage("captureSetup:hardware-select:begin");
  if (config.temporalLayerCount != 1) {
    throw CodedError(error_code::kHardwareUnavailable,
                     "Linux hardware encoder remains flat NVENC simulcast; "
                     "capture.temporalLayerCount must be 1");
  }
  const ProviderProbeReport& report = SelectableNvencReport();
  LogCaptureStage("captureSetup:hardware-select:selected");
  *g_activeHardwareProfile = RunnableProfileOf(report);
  LogCaptureStage("captureSetup:hardware-profile-found encoder=" +
                  report.encoder);
  DestroyOpenH264Branches();
  StartHardwareBranchStats(config);
  DescribeHardwareSelection(report);
  AwaitFirstKeyframes(config);
  LogCaptureStage("captureSetup:hardware-provider-initialized");
}

}  // namespace linux_capture
