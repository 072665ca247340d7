#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_PROVIDER_PROBE_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_PROVIDER_PROBE_H_

#include <vector>

#include "base/capture_mutex.h"
#include "state/provider_probe_report.h"

namespace linux_capture {

// One report per profile, in table order. Needs gst_init; never fails.
std::vector<ProviderProbeReport> ProbeHardwareProviders();

// Makes a new probe the one that is reported and selected from.
void RenewProviderProbeReports() EXCLUDES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_PROVIDER_PROBE_H_
