#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_

#include <gst/gst.h>

#include <memory>

#include "base/capture_mutex.h"

namespace linux_capture {

// Xlib's default handlers end the process when a request fails (the captured
// window was closed) or when the X server goes away. While an X11 capture
// exists, handlers of ours take those errors when they happen on the capture's
// own threads, remember the first one, and pass every other to the handlers
// that the host had installed.

struct X11Errors;

// One for each X11 capture. It lives as long as anything of the capture may
// still talk to the X server, which may be longer than the capture itself; the
// last one to go puts the host's handlers back. Any thread.
class X11Guard {
 public:
  X11Guard();
  X11Guard(const X11Guard&) = delete;
  X11Guard& operator=(const X11Guard&) = delete;
  ~X11Guard();

 private:
  friend class X11CaptureScope;
  std::shared_ptr<X11Errors> errors_;
};

// Takes the place of the handlers again that the host has installed during the
// capture, and passes what is theirs on to them; after the second look that
// finds them, since one may be there for a single request. The bus thread does
// it in every round.
void TakeX11HandlersBack();

// Marks the calling thread as working for an X11 capture while it lives: used
// around the launch and every state change of the pipeline. Without a guard it
// does nothing.
class X11CaptureScope {
 public:
  explicit X11CaptureScope(const X11Guard* guard);
  X11CaptureScope(const X11CaptureScope&) = delete;
  X11CaptureScope& operator=(const X11CaptureScope&) = delete;
  ~X11CaptureScope();
};

// Watches the connection and the threads of the launched `pipeline`, which is
// in the NULL state. Inside the X11CaptureScope that it was launched in.
void WatchX11Pipeline(GstElement* pipeline);

// Whether an X11 error has ended the pipeline.
bool HasX11Failed(GstElement* pipeline);

// If an X11 error ended the capture since the last call, posts it as an error
// message on the pipeline's bus. Bus thread.
void PostX11Failure(GstElement* pipeline) REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_GUARD_H_
