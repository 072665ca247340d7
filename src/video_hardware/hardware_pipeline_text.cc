#include "video_hardware/hardware_pipeline_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

constexpr std::size_t kHardwareBranchCount = 3;

bool MapsEveryProperty(const GStreamerHardwareEncoderProfile& profile) {
  return !profile.bitrateProperty.empty() &&
         !profile.maxBitrateProperty.empty() &&
         !profile.gopSizeProperty.empty() && !profile.bFramesProperty.empty() &&
         !profile.cabacProperty.empty() && !profile.presetProperty.empty() &&
         !profile.zeroLatencyProperty.empty() && profile.bitrateDivisor > 0;
}

std::string PropertyText(const std::string& property,
                         const std::string& value) {
  return " " + property + "=" + value;
}

std::string PropertyText(const std::string& property, std::int32_t value) {
  return PropertyText(property, std::to_string(value));
}

std::string PropertyText(const std::string& property, bool value) {
  return PropertyText(property, std::string(value ? "true" : "false"));
}

std::string GpuSizeFilter(const std::string& memory, const std::string& format,
                          const VideoBranchConfig& branch) {
  return "video/x-raw(" + memory + "),format=" + format +
         ",width=" + std::to_string(branch.width) +
         ",height=" + std::to_string(branch.height) + " ! ";
}

std::string HardwareBranchText(const VideoBranchConfig& branch,
                               const CaptureConfig& config,
                               const GStreamerHardwareEncoderProfile& profile) {
  const std::string index = std::to_string(branch.branchIndex);
  const std::string fps = std::to_string(branch.fps);
  const std::string& memory = profile.memoryFeature;
  // The rate limiter only ever drops; the filter behind it fixes the rate that
  // the encoder is told.
  return "videoTee. ! "
         "queue max-size-buffers=4 leaky=downstream ! "
         "videorate name=videoRate" +
         index + " drop-only=true max-rate=" + fps + " ! video/x-raw(" +
         memory + "),framerate=" + fps + "/1 ! glcolorscale ! " +
         GpuSizeFilter(memory, "RGBA", branch) + "glcolorconvert ! " +
         GpuSizeFilter(memory, "NV12", branch) + profile.elementFactory +
         " name=videoEncoder" + index +
         BuildHardwareEncoderPropertySegment(branch, config, profile) +
         " ! "
         "video/x-h264,stream-format=byte-stream,alignment=au ! "
         "appsink name=videoSink" +
         index + " emit-signals=true sync=false max-buffers=4 drop=true ";
}

}  // namespace

std::string BuildHardwareEncoderPropertySegment(
    const VideoBranchConfig& branch, const CaptureConfig& config,
    const GStreamerHardwareEncoderProfile& profile) {
  if (!MapsEveryProperty(profile)) {
    throw CodedError(
        error_code::kHardwareUnavailable,
        "runnable GStreamer hardware profile is missing encoder property "
        "mapping");
  }
  const std::int32_t rate =
      std::max(branch.bitrate / profile.bitrateDivisor, 1);
  const std::int32_t peak =
      std::max(branch.maxBitrate / profile.bitrateDivisor, rate);
  return PropertyText(profile.bitrateProperty, rate) +
         PropertyText(profile.maxBitrateProperty, peak) +
         PropertyText(profile.gopSizeProperty, std::max(config.gopSize, 1)) +
         PropertyText(profile.bFramesProperty, config.bFrames) +
         PropertyText(profile.cabacProperty, config.enableCABAC) +
         PropertyText(profile.presetProperty, config.lowLatencyMode
                                                  ? profile.lowLatencyPreset
                                                  : profile.defaultPreset) +
         PropertyText(profile.zeroLatencyProperty, config.lowLatencyMode) +
         profile.extraProperties;
}

std::string BuildHardwareVideoPipeline(
    const CaptureConfig& config,
    const GStreamerHardwareEncoderProfile& profile) {
  if (config.backend != "portal") {
    throw CodedError(
        error_code::kHardwareUnavailable,
        "Linux hardware simulcast FPS parity requires Wayland portal PipeWire "
        "capture");
  }
  if (config.branches.size() != kHardwareBranchCount) {
    throw CodedError(
        error_code::kHardwareUnavailable,
        "Linux hardware simulcast FPS parity requires exactly three spatial "
        "branches");
  }
  if (!profile.runnable) {
    throw CodedError(
        error_code::kHardwareUnavailable,
        "Linux hardware simulcast FPS parity requires a runnable GStreamer "
        "hardware profile");
  }
  std::string text = "pipewiresrc fd=" + std::to_string(config.pipeWireFd) +
                     " path=" + std::to_string(config.pipeWireNodeId) +
                     " always-copy=false use-bufferpool=true "
                     "do-timestamp=true on-disconnect=2 ! "
                     "video/x-raw(memory:DMABuf) ! "
                     "glupload ! glcolorconvert ! "
                     "tee name=videoTee ";
  for (const VideoBranchConfig& branch : config.branches) {
    text += HardwareBranchText(branch, config, profile);
  }
  return text;
}

}  // namespace linux_capture
