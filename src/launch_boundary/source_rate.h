#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RATE_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RATE_H_

#include <gst/gst.h>

#include "config/capture_config.h"

namespace linux_capture {

// Left free, the source's rate is negotiated down to a slower branch, and the
// faster ones carry pictures twice.

// For a source that gives any rate: it runs at the highest branch rate.
void RequireHighestRate(GstElement* pipeline, const CaptureConfig& config);

// For a producer that may have a rate of its own, or a variable one: only one
// that leaves the choice is asked.
void PreferHighestRate(GstElement* pipeline, const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RATE_H_
