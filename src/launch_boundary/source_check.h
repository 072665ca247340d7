#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_CHECK_H_

#include <gst/gst.h>

namespace linux_capture {

// A PipeWire source waits for half a minute and more for a daemon that does not
// answer, for a target that does not exist or for a link that nobody makes, and
// its error names none of them.

// Throws CodedError naming what is wrong when the watched sources of a launched
// pipeline cannot be captured: the host's descriptor, the daemon, a target, or
// that there is nobody to link it. Capture mutex held.
void RequirePipeWireTargets(GstElement* pipeline);

// To be called when the pipeline did not start in time. Throws CodedError when
// PipeWire, its session manager or one of the sources is the reason. The
// pipeline itself is not touched. Capture mutex held.
void ThrowIfPipeWireHoldsUp(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_CHECK_H_
