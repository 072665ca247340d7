#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SCALING_METHOD_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SCALING_METHOD_H_

#include <gst/gst.h>

namespace linux_capture {

// The default of videoscale looks at four pixels of the source, however many
// make one of the result: text becomes unreadable in a branch of a quarter of
// the size.
void ScaleFromAllPixels(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SCALING_METHOD_H_
