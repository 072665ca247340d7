#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_FALLBACK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_FALLBACK_H_

#include <gst/gst.h>

namespace linux_capture {

// Keeps every launched pipewiresrc from recording another source than the one
// asked for: PipeWire 1.4 answers a missing target with the default sink's
// monitor or the default camera.
void ForbidSourceFallback(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_FALLBACK_H_
