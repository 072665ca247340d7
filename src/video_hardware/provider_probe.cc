#include "video_hardware/provider_probe.h"

#include <gst/gst.h>

#include <utility>

#include "base/gst_handles.h"
#include "state/capture_state.h"
#include "video_hardware/encoder_profiles.h"

namespace linux_capture {
namespace {

bool CapsCarryFeature(GstCaps* caps, const std::string& feature) {
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    const GstCapsFeatures* features = gst_caps_get_features(caps, i);
    if (features != nullptr &&
        gst_caps_features_contains(features, feature.c_str())) {
      return true;
    }
  }
  return false;
}

// Whether a sink pad template of the element accepts that kind of memory.
bool SinkAcceptsMemory(GstElementFactory* factory, const std::string& feature) {
  for (const GList* item =
           gst_element_factory_get_static_pad_templates(factory);
       item != nullptr; item = item->next) {
    auto* padTemplate = static_cast<GstStaticPadTemplate*>(item->data);
    if (padTemplate->direction != GST_PAD_SINK) continue;
    const GstCapsPtr caps(gst_static_caps_get(&padTemplate->static_caps));
    if (caps && CapsCarryFeature(caps.get(), feature)) return true;
  }
  return false;
}

std::string ProbeVerdict(const ProviderProbeReport& report, bool runnable) {
  if (!report.available) {
    return report.encoder + " GStreamer element is not installed";
  }
  if (!report.gpuMemorySupported) {
    return report.encoder +
           " is installed, but its sink caps do not prove the required "
           "GPU-backed memory feature";
  }
  if (!runnable) {
    return report.encoder +
           " is intentionally not runnable for this gate; only NVIDIA NVENC "
           "is the app-facing hardware profile";
  }
  return report.encoder +
         " is selectable for Linux hardware H.264 simulcast FPS preset parity";
}

ProviderProbeReport ProbeProvider(
    const GStreamerHardwareEncoderProfile& profile) {
  ProviderProbeReport report;
  report.provider = profile.providerId;
  report.encoder = profile.elementFactory;
  report.providerTier =
      profile.runnable ? "hardware-simulcast-fps" : "not-runnable";
  report.hardwareParityMode =
      profile.runnable ? "simulcast-fps-presets" : "none";
  report.probed = true;
  const GstElementFactoryPtr factory(
      gst_element_factory_find(profile.elementFactory.c_str()));
  if (factory) {
    report.available = true;
    report.isHardwareEncoder = true;
    report.gpuMemorySupported =
        SinkAcceptsMemory(factory.get(), profile.memoryFeature);
  }
  if (report.gpuMemorySupported) report.memoryFeature = profile.memoryFeature;
  const bool usable = report.available && profile.runnable;
  report.temporalLayerCapacity = usable ? 1 : 0;
  report.dmaBufSupported = usable;
  report.temporalMetadataSource =
      usable ? "synthetic-l1t3-simulcast-dto" : "missing";
  report.selectableForTransport = usable && report.gpuMemorySupported;
  report.selectableForSimulcastFps = report.selectableForTransport;
  report.rejectionReason = ProbeVerdict(report, profile.runnable);
  return report;
}

}  // namespace

std::vector<ProviderProbeReport> ProbeHardwareProviders() {
  std::vector<ProviderProbeReport> reports;
  for (const auto& profile : GStreamerHardwareEncoderProfiles()) {
    reports.push_back(ProbeProvider(profile));
  }
  return reports;
}

void RenewProviderProbeReports() {
  auto reports = ProbeHardwareProviders();
  const MutexLock lock(g_mutex);
  *g_providerProbeReports = std::move(reports);
}

}  // namespace linux_capture
