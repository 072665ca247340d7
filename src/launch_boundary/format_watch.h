#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_

#include <gst/gst.h>

namespace linux_capture {

// When a producer changes the size of its pictures, the source of PipeWire
// 0.3.65 goes on with the caps of the first: every converter refuses what
// comes, and the picture stands still without a word. An error message on the
// pipeline's bus tells it, once. Later releases follow, or end the stream with
// an error of their own. Before PLAYING.
void ReportFormatChanges(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_
