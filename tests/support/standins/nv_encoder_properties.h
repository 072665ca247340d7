#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_PROPERTIES_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_PROPERTIES_H_

#include <gst/gst.h>

#include <atomic>

#include "h264_stream.h"

namespace linux_capture::standins {

// What the encoder does with its properties. They may be written while another
// thread encodes.
struct NvEncoderProperties {
  std::atomic<unsigned int> bitrate{0};  // kilobits per second
  std::atomic<int> gopSize{75};
  std::atomic<bool> isCabac{true};
  std::atomic<bool> hasDelimiters{true};
};

StreamSettings SettingsOf(const NvEncoderProperties& properties);

// Installs the properties that the launch text sets, with the types that the
// real element gives them. Switches: "text-bitrate" and "text-max-bitrate" make
// one a string, "no-bitrate" leaves it out, "old-properties" leaves out those
// that GStreamer 1.26 brought.
void InstallNvEncoderProperties(GObjectClass* objectClass);

// Takes over a property's new value.
void StoreNvEncoderProperty(NvEncoderProperties& properties, guint id,
                            const GValue* value);

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_PROPERTIES_H_
