#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SINK_PREROLL_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SINK_PREROLL_H_

#include <gst/gst.h>

namespace linux_capture {

// By default the sinks hold back their first buffer until all of them have one.
// With two sources that can be for ever: the sink of the mix holds back the
// mixer, which then does not answer the question about memory that the slower
// source asks before its first buffer, for which the others wait. The capture
// was set up after five seconds then and had no sound.
void DeliverBeforePreroll(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SINK_PREROLL_H_
