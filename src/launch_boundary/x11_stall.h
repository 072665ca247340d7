#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_STALL_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_STALL_H_

#include <gst/gst.h>

#include "base/capture_mutex.h"

namespace linux_capture {

// An X server that is stopped, or that a program keeps for itself, leaves the
// source waiting inside Xlib, which has no time limit and no way to ask.

// A gap between two pictures that the rate adapters fill with copies. A longer
// one means that the server stood still, and copies of an old picture would
// only hold up the new ones.
constexpr GstClockTime kLongestFilledX11Gap = 500 * GST_MSECOND;

// Watches when a launched ximagesrc delivers, and keeps back a picture that was
// so long under way. Before the guard, which ends a source that failed; before
// PLAYING.
void WatchX11Stalls(GstElement* pipeline);

// Posts one error message on the pipeline's bus each time that no picture has
// come for a while. Returns its code until one comes again, null otherwise.
// `pipeline` may be null. Bus thread.
const char* PostX11Stall(GstElement* pipeline) REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_STALL_H_
