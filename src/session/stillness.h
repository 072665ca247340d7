#ifndef LINUX_CAPTURE_SESSION_STILLNESS_H_
#define LINUX_CAPTURE_SESSION_STILLNESS_H_

#include <gst/gst.h>

namespace linux_capture {

// Makes a launched raw video pipeline cope with a PipeWire source that sends
// only when something changes: packets keep flowing while nothing does, and
// the first new picture does not wait behind copies of the old one.
void PrepareForStillness(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_STILLNESS_H_
