#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CHECK_H_

#include <gst/gst.h>

namespace linux_capture {

// GStreamer's filters let a picture that they cannot read pass as memory that
// nobody wrote to, and believe whatever a source says of the place of its rows.
// So what a PipeWire source delivers has to be in the buffer that it delivers;
// what is not is dropped.
void DropUnreadablePictures(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CHECK_H_
