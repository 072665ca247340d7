#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CROP_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CROP_H_

#include <gst/gst.h>

namespace linux_capture {

// A compositor may offer a window in a picture of the monitor's size, of which
// the window is a part that grows and shrinks with it, while the format stays.
// Each picture carries where that part is, from PipeWire 1.6 on; nothing behind
// the source looks for it. Here the part becomes the picture, without a copy,
// and what follows is told its size as that of a source that changes, which
// the scalers fit into their branches in proportion. Before PLAYING.
void CropToWindows(GstElement* pipeline);

// The same behind one element, which is not the source itself: its own caps
// stay what it has agreed on with PipeWire.
void CropBehind(GstElement* element);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_CROP_H_
