#ifndef LINUX_CAPTURE_STATE_ENCODER_PROFILE_H_
#define LINUX_CAPTURE_STATE_ENCODER_PROFILE_H_

#include <cstdint>
#include <string>

namespace linux_capture {

// Everything that differs between the hardware encoder elements. No other file
// knows the names of their properties.
struct GStreamerHardwareEncoderProfile {
  std::string providerId;      // "gstreamer-" + elementFactory
  std::string elementFactory;  // GStreamer element factory
  std::string memoryFeature;   // caps feature its sink pad must accept
  std::string sourceMemoryFeature = "DMABuf";
  std::string encoderInputMemoryFeature = "GLMemory";
  std::string bitrateProperty;
  std::string maxBitrateProperty;
  std::string gopSizeProperty;
  std::string bFramesProperty;
  std::string cabacProperty;
  std::string presetProperty;
  std::string zeroLatencyProperty;
  std::string lowLatencyPreset;        // preset with lowLatencyMode on
  std::string defaultPreset;           // preset with lowLatencyMode off
  std::string extraProperties;         // appended verbatim, begins with a blank
  std::int32_t bitrateDivisor = 1000;  // bits per second per property unit
  bool runnable = false;               // may be selected and launched

  bool operator==(const GStreamerHardwareEncoderProfile&) const = default;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_ENCODER_PROFILE_H_
