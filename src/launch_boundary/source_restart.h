#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RESTART_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RESTART_H_

#include <gst/gst.h>

namespace linux_capture {

// When an application pauses its stream, a pipewiresrc ends its own task as if
// it were being flushed, and nothing starts it again when the application goes
// on: silence, or the last picture, for the rest of the capture. So a source
// whose task stands still in a pipeline that plays is set going again. While
// the stream is still paused it stops again at once, which costs nothing.
//
// `pipeline` may be null. Bus thread, capture mutex held.
void RestartPausedSources(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_RESTART_H_
