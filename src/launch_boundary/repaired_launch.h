#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRED_LAUNCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRED_LAUNCH_H_

#include <string>

#include "base/gst_handles.h"
#include "config/capture_config.h"
#include "launch_boundary/repairs.h"

namespace linux_capture {

// The one door through which a capture's pipelines come: what must hold before
// the text is parsed is looked at, the text is launched, and what it gets wrong
// is put right. Throws CodedError. `pipeline`, in the NULL state, is
// there as soon as the text was launched, also when a repair then refused its
// source. By PipelineControl, because it may wait for others; inside an
// X11CaptureScope for PipelineKind::kX11.
void LaunchRepaired(const std::string& text, PipelineKind kind,
                    const CaptureConfig& config, GstElementPtr& pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRED_LAUNCH_H_
