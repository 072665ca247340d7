#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_DISCONNECT_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_DISCONNECT_H_

#include <gst/gst.h>

namespace linux_capture {

// To PipeWire 1.6 every change of the format of a stream is a disconnection:
// its buffers are removed, and `on-disconnect=2` ends the source with an error
// where it would follow. What really goes away is told by the watch of the
// registry, so where there is one the source has nothing to tell. After the
// watch has begun, before PLAYING.
void OutliveFormatChanges(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_DISCONNECT_H_
