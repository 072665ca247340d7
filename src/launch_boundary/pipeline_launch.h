#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_

#include <string>

#include "base/gst_handles.h"

namespace linux_capture {

// Turns a launch text into a pipeline in the NULL state. Throws
// CodedError with GStreamer's message on any parse problem, a
// recoverable one included: a partly parsed pipeline is never used.
GstElementPtr LaunchPipeline(const std::string& description);

// Brings `pipeline` to PLAYING, waiting up to five seconds for an asynchronous
// change; one that is still under way then counts as success and may fail
// later on the bus. `label` is "video pipeline" or "audio pipeline".
void SetPlayingOrThrow(GstElement* pipeline, const std::string& label);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_LAUNCH_H_
