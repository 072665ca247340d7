#include "launch_boundary/x11_guard.h"

#include <X11/Xlib.h>
#include <dlfcn.h>

#include <atomic>
#include <string>
#include <string_view>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/x11_picture_hold.h"

// Xlib defines everyday words as macros; the release module is one unit.
#undef Always
#undef Bool
#undef None
#undef Status
#undef Success

namespace linux_capture {
namespace {

enum class X11Failure : int { kNone, kWindowGone, kServerGone };

using InitDisplayLock = int (*)(Display*);

std::atomic<X11Failure> g_x11Failure{X11Failure::kNone};
std::atomic<bool> g_x11FailurePosted{false};
std::atomic<XErrorHandler> g_hostErrorHandler{nullptr};
std::atomic<XIOErrorHandler> g_hostIoErrorHandler{nullptr};
std::atomic<InitDisplayLock> g_xlibInitDisplayLock{nullptr};

thread_local int t_captureDepth = 0;
thread_local Display* t_openedDisplay = nullptr;

void RecordFailure(X11Failure failure) noexcept {
  X11Failure none = X11Failure::kNone;
  g_x11Failure.compare_exchange_strong(none, failure);
}

int HandleError(Display* display, XErrorEvent* event) noexcept {
  if (t_captureDepth == 0) {
    const XErrorHandler host = g_hostErrorHandler.load();
    return host != nullptr ? host(display, event) : 0;
  }
  // A window that is gone is gone for good; one that is hidden or partly off
  // the screen may be read again later.
  if (event->error_code == BadWindow || event->error_code == BadDrawable) {
    RecordFailure(X11Failure::kWindowGone);
  } else if (event->error_code == BadMatch) {
    NoteRefusedPicture();
  }
  return 0;
}

int HandleIoError(Display* display) noexcept {
  if (t_captureDepth == 0) {
    const XIOErrorHandler host = g_hostIoErrorHandler.load();
    return host != nullptr ? host(display) : 0;
  }
  RecordFailure(X11Failure::kServerGone);
  return 0;
}

// Replaces Xlib's exit(1) on the capture's own connection. Xlib locks the
// connection for this thread before it comes here, counting on the exit; the
// teardown would wait for that lock for ever.
void StayAlive(Display* display, void* /*data*/) noexcept {
  XUnlockDisplay(display);
}

// Xlib calls this for every connection it opens, before the connection's owner
// knows it. It is the only way to learn which connection ximagesrc uses, and
// the I/O error exit of a connection has to be replaced before the error.
int NoteOpenedDisplay(Display* display) noexcept {
  if (t_captureDepth > 0) t_openedDisplay = display;
  const InitDisplayLock xlib = g_xlibInitDisplayLock.load();
  return xlib != nullptr ? xlib(display) : 0;
}

void WatchOpenedDisplays() {
  void* xlib = dlopen("libX11.so.6", RTLD_NOW | RTLD_NOLOAD);
  if (xlib == nullptr) return;
  auto* hook =
      static_cast<InitDisplayLock*>(dlsym(xlib, "_XInitDisplayLock_fn"));
  if (hook != nullptr) {
    std::atomic_ref<InitDisplayLock> slot(*hook);
    const InitDisplayLock current = slot.load();
    if (current != NoteOpenedDisplay) {
      g_xlibInitDisplayLock.store(current);
      slot.store(NoteOpenedDisplay);
    }
  }
  dlclose(xlib);
}

void UnwatchOpenedDisplays() {
  void* xlib = dlopen("libX11.so.6", RTLD_NOW | RTLD_NOLOAD);
  if (xlib == nullptr) return;
  auto* hook =
      static_cast<InitDisplayLock*>(dlsym(xlib, "_XInitDisplayLock_fn"));
  if (hook != nullptr) {
    std::atomic_ref<InitDisplayLock> slot(*hook);
    InitDisplayLock ours = NoteOpenedDisplay;
    slot.compare_exchange_strong(ours, g_xlibInitDisplayLock.load());
  }
  dlclose(xlib);
}

void SurviveLossOfOpenedDisplay() {
  if (t_openedDisplay == nullptr) return;
  XSetIOErrorExitHandler(t_openedDisplay, StayAlive, nullptr);
  t_openedDisplay = nullptr;
}

bool IsX11Source(GstElement* element) {
  const GstElementFactory* factory =
      element != nullptr ? gst_element_get_factory(element) : nullptr;
  return factory != nullptr &&
         std::string_view(GST_OBJECT_NAME(GST_OBJECT_CAST(factory))) ==
             "ximagesrc";
}

// Stream-status messages are posted by the thread that they are about, so the
// source's own streaming thread marks itself here.
GstBusSyncReply OnSyncMessage(GstBus* /*bus*/, GstMessage* message,
                              gpointer /*data*/) {
  if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_STREAM_STATUS) {
    return GST_BUS_PASS;
  }
  GstStreamStatusType type = GST_STREAM_STATUS_TYPE_CREATE;
  GstElement* owner = nullptr;
  gst_message_parse_stream_status(message, &type, &owner);
  if (!IsX11Source(owner)) return GST_BUS_PASS;
  if (type == GST_STREAM_STATUS_TYPE_CREATE) {
    // A source that is started again opens a new connection first.
    SurviveLossOfOpenedDisplay();
  } else if (type == GST_STREAM_STATUS_TYPE_ENTER) {
    ++t_captureDepth;
  } else if (type == GST_STREAM_STATUS_TYPE_LEAVE) {
    ReleaseHeldPicture();
    if (t_captureDepth > 0) --t_captureDepth;
  }
  return GST_BUS_PASS;
}

// After a failure the source would repeat its last picture, or use a dead
// connection, for ever: "flushing" makes it pause quietly.
GstPadProbeReturn EndFailedSource(GstPad* /*pad*/, PassingBuffer& picture) {
  if (g_x11Failure.load() == X11Failure::kNone) return GST_PAD_PROBE_OK;
  const GstBufferPtr ended = picture.Take();
  picture.Answer(GST_FLOW_FLUSHING);
  return GST_PAD_PROBE_HANDLED;
}

void ProbeX11Source(GstElement* pipeline) {
  ForEachElementOf(pipeline, "ximagesrc", [](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    AddBufferProbe(pad.get(), EndFailedSource);
  });
}

const char* FailureText(X11Failure failure) {
  return failure == X11Failure::kServerGone
             ? "the connection to the X server was lost"
             : "the captured X11 window was closed or is not a window of this "
               "X server";
}

}  // namespace

X11CaptureScope::X11CaptureScope() noexcept { ++t_captureDepth; }

X11CaptureScope::~X11CaptureScope() {
  if (--t_captureDepth == 0) t_openedDisplay = nullptr;
}

void BeginX11Guard() {
  g_x11Failure.store(X11Failure::kNone);
  g_x11FailurePosted.store(false);
  BeginPictureHold();
  WatchOpenedDisplays();
  if (const XErrorHandler before = XSetErrorHandler(HandleError);
      before != HandleError) {
    g_hostErrorHandler.store(before);
  }
  if (const XIOErrorHandler before = XSetIOErrorHandler(HandleIoError);
      before != HandleIoError) {
    g_hostIoErrorHandler.store(before);
  }
}

void WatchX11Pipeline(GstElement* pipeline) {
  SurviveLossOfOpenedDisplay();
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  gst_bus_set_sync_handler(bus.get(), NoThrow<&OnSyncMessage>, nullptr,
                           nullptr);
  ProbeX11Source(pipeline);
}

void EndX11Guard() {
  if (g_hostErrorHandler.load() != nullptr) {
    const XErrorHandler current = XSetErrorHandler(g_hostErrorHandler.load());
    // A host that has installed a handler since then keeps it.
    if (current != HandleError) XSetErrorHandler(current);
    g_hostErrorHandler.store(nullptr);
  }
  if (g_hostIoErrorHandler.load() != nullptr) {
    const XIOErrorHandler current =
        XSetIOErrorHandler(g_hostIoErrorHandler.load());
    if (current != HandleIoError) XSetIOErrorHandler(current);
    g_hostIoErrorHandler.store(nullptr);
    UnwatchOpenedDisplays();
  }
}

void PostX11Failure(GstElement* pipeline) {
  const X11Failure failure = g_x11Failure.load();
  if (pipeline == nullptr || failure == X11Failure::kNone ||
      g_x11FailurePosted.exchange(true)) {
    return;
  }
  PostElementError(pipeline, GST_RESOURCE_ERROR_READ, FailureText(failure),
                   failure == X11Failure::kServerGone
                       ? error_code::kDisplayLost
                       : error_code::kWindowClosed);
}

}  // namespace linux_capture
