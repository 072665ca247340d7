#ifndef LINUX_CAPTURE_STATE_PROVIDER_PROBE_REPORT_H_
#define LINUX_CAPTURE_STATE_PROVIDER_PROBE_REPORT_H_

#include <cstdint>
#include <string>

namespace linux_capture {

// What the GStreamer registry of this machine says of one encoder profile.
// Field names are the report's keys.
struct ProviderProbeReport {
  std::string provider;
  std::string encoder;
  std::string providerTier;
  std::string hardwareParityMode;
  bool probed = false;
  bool available = false;
  bool selectableForTransport = false;
  bool selectableForSimulcastFps = false;
  bool isHardwareEncoder = false;
  bool temporalSvcSupported = false;
  std::int32_t temporalLayerCapacity = 0;
  bool gpuMemorySupported = false;
  bool dmaBufSupported = false;
  std::string memoryFeature;
  std::string temporalMetadataSource;
  std::string rejectionReason;  // the positive verdict when selectable
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_PROVIDER_PROBE_REPORT_H_
