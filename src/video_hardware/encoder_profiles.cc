#include "video_hardware/encoder_profiles.h"

#include <utility>

namespace linux_capture {
namespace {

GStreamerHardwareEncoderProfile UnmappedProfile(
    const char* elementFactory, const char* memoryFeature,
    const char* encoderInputMemory) {
  GStreamerHardwareEncoderProfile profile;
  profile.providerId = std::string("gstreamer-") + elementFactory;
  profile.elementFactory = elementFactory;
  profile.memoryFeature = memoryFeature;
  profile.encoderInputMemoryFeature = encoderInputMemory;
  return profile;
}

GStreamerHardwareEncoderProfile NvencProfile(const char* elementFactory) {
  GStreamerHardwareEncoderProfile profile =
      UnmappedProfile(elementFactory, "memory:GLMemory", "GLMemory");
  profile.bitrateProperty = "bitrate";
  profile.maxBitrateProperty = "max-bitrate";
  profile.gopSizeProperty = "gop-size";
  profile.bFramesProperty = "bframes";
  profile.cabacProperty = "cabac";
  profile.presetProperty = "preset";
  profile.zeroLatencyProperty = "zerolatency";
  profile.lowLatencyPreset = "low-latency-hp";
  profile.defaultPreset = "hq";
  profile.extraProperties =
      " rc-mode=cbr strict-gop=true aud=true repeat-sequence-header=true";
  profile.runnable = true;
  return profile;
}

}  // namespace

std::vector<GStreamerHardwareEncoderProfile>
GStreamerHardwareEncoderProfiles() {
  return {NvencProfile("nvh264enc"), NvencProfile("nvautogpuh264enc"),
          UnmappedProfile("vulkanh264enc", "memory:VulkanImage", "VulkanImage"),
          UnmappedProfile("vah264enc", "memory:DMABuf", "VAMemory"),
          UnmappedProfile("qsvh264enc", "memory:DMABuf", "VAMemory")};
}

}  // namespace linux_capture
