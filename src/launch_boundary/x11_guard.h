#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_

#include <gst/gst.h>

#include "base/capture_mutex.h"

namespace linux_capture {

// Xlib's default handlers end the process when a request fails (the captured
// window was closed) or when the X server goes away. While an X11 capture
// exists, handlers of ours take those errors when they happen on the capture's
// own threads, remember the first one, and pass every other to the handlers
// that the host had installed.

// Marks the calling thread as working for an X11 capture while it lives: used
// around the launch and every state change of the pipeline.
class X11CaptureScope {
 public:
  X11CaptureScope() noexcept;
  X11CaptureScope(const X11CaptureScope&) = delete;
  X11CaptureScope& operator=(const X11CaptureScope&) = delete;
  ~X11CaptureScope();
};

// Installs the handlers, before the launch. Inside an X11CaptureScope.
void BeginX11Guard() REQUIRES(g_mutex);

// Watches the connection and the threads of the launched `pipeline`, which is
// in the NULL state. Inside the same X11CaptureScope.
void WatchX11Pipeline(GstElement* pipeline) REQUIRES(g_mutex);

// Puts the host's handlers back, once the pipeline is gone. Does nothing when
// none were installed.
void EndX11Guard() REQUIRES(g_mutex);

// If an X11 error ended the capture since the last call, posts it as an error
// message on the pipeline's bus. Bus thread.
void PostX11Failure(GstElement* pipeline) REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_
