#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_FIRST_PICTURE_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_FIRST_PICTURE_H_

#include <gst/gst.h>

namespace linux_capture {

// Left alone, the rate adapter fills the time before the first picture with
// copies of it, and their times overlap: the first copy carries the time of
// capture, the next ones earlier times.
void BeginWithFirstPicture(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_FIRST_PICTURE_H_
