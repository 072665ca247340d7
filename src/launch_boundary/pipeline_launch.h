#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_

#include <string>

#include "base/gst_handles.h"

namespace linux_capture {

// Turns a launch text into a pipeline in the NULL state. Throws
// CodedError with GStreamer's message on any parse problem, a
// recoverable one included: a partly parsed pipeline is never used.
GstElementPtr LaunchPipeline(const std::string& description);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_
