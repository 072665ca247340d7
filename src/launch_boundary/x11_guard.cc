#include "launch_boundary/x11_guard.h"

#include <X11/Xlib.h>

#include <atomic>
#include <memory>
#include <type_traits>
#include <utility>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "base/mutex.h"
#include "base/object_data.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "base/stage_log.h"
#include "launch_boundary/x11_connections.h"
#include "launch_boundary/x11_picture_hold.h"

// Xlib defines everyday words as macros; the release module is one unit.
#undef Always
#undef Bool
#undef None
#undef Status
#undef Success

namespace linux_capture {

enum class X11Failure : int { kNone, kWindowGone, kServerGone };

struct X11Errors {
  std::atomic<X11Failure> failure{X11Failure::kNone};
  bool isPosted = false;  // guarded by the capture mutex

  void Record(X11Failure met) noexcept {
    X11Failure none = X11Failure::kNone;
    failure.compare_exchange_strong(none, met);
  }
};

namespace {

constexpr const char* kErrorsKey = "linux-capture-x11-errors";

// The handlers of the host: those in force, and those that it had before the
// capture.
std::atomic<XErrorHandler> g_hostErrorHandler{nullptr};
std::atomic<XErrorHandler> g_earlierErrorHandler{nullptr};
std::atomic<XIOErrorHandler> g_hostIoErrorHandler{nullptr};
std::atomic<XIOErrorHandler> g_earlierIoErrorHandler{nullptr};

// Installing and removing; nothing else is taken under it.
Mutex g_x11GuardsMutex;
int g_x11Guards GUARDED_BY(g_x11GuardsMutex) = 0;
// What was in our place at the last look.
XErrorHandler g_seenErrorHandler GUARDED_BY(g_x11GuardsMutex) = nullptr;
XIOErrorHandler g_seenIoErrorHandler GUARDED_BY(g_x11GuardsMutex) = nullptr;

// Of the capture that the thread works for; null for all other threads.
thread_local std::shared_ptr<X11Errors> t_x11Errors;

// A handler that the host installed during the capture may pass on to the one
// that it found there, which is ours.
template <typename Handler, typename... Arguments>
int PassToHost(const std::atomic<Handler>& inForce,
               const std::atomic<Handler>& earlier, Arguments... arguments) {
  thread_local bool isPassing = false;
  Handler host = isPassing ? nullptr : inForce.load();
  if (host == nullptr) host = earlier.load();
  if (host == nullptr) return 0;
  const bool wasPassing = std::exchange(isPassing, true);
  const int result = host(arguments...);
  isPassing = wasPassing;
  return result;
}

int HandleError(Display* display, XErrorEvent* event) noexcept {
  if (!t_x11Errors) {
    return PassToHost(g_hostErrorHandler, g_earlierErrorHandler, display,
                      event);
  }
  // A window that is gone is gone for good; one that is hidden or partly off
  // the screen may be read again later.
  if (event->error_code == BadWindow || event->error_code == BadDrawable) {
    t_x11Errors->Record(X11Failure::kWindowGone);
  } else if (event->error_code == BadMatch) {
    NoteRefusedPicture();
  }
  return 0;
}

int HandleIoError(Display* display) noexcept {
  if (!t_x11Errors) {
    return PassToHost(g_hostIoErrorHandler, g_earlierIoErrorHandler, display);
  }
  t_x11Errors->Record(X11Failure::kServerGone);
  return 0;
}

using SharedX11Errors = std::shared_ptr<X11Errors>;

// Shared by all who may still meet an error.
X11Errors* ErrorsOf(GstElement* pipeline) {
  auto* errors = ObjectData<SharedX11Errors>(pipeline, kErrorsKey);
  return errors == nullptr ? nullptr : errors->get();
}

// Stream-status messages are posted by the thread that they are about, so the
// source's own streaming thread marks itself here.
GstBusSyncReply OnSyncMessage(GstBus* /*bus*/, GstMessage* message,
                              gpointer data) {
  if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_STREAM_STATUS) {
    return GST_BUS_PASS;
  }
  GstStreamStatusType type = GST_STREAM_STATUS_TYPE_CREATE;
  GstElement* owner = nullptr;
  gst_message_parse_stream_status(message, &type, &owner);
  if (owner == nullptr || FactoryNameOf(owner) != "ximagesrc")
    return GST_BUS_PASS;
  if (type == GST_STREAM_STATUS_TYPE_CREATE) {
    // A source that is started again opens a new connection first.
    SurviveLossOfOpenedDisplay();
  } else if (type == GST_STREAM_STATUS_TYPE_ENTER) {
    t_x11Errors = *static_cast<SharedX11Errors*>(data);
  } else if (type == GST_STREAM_STATUS_TYPE_LEAVE) {
    ReleaseHeldPicture();
    t_x11Errors.reset();
  }
  return GST_BUS_PASS;
}

// After a failure the source would repeat its last picture, or use a dead
// connection, for ever: "flushing" makes it pause quietly.
void ProbeX11Source(GstElement* pipeline, const SharedX11Errors& errors) {
  const auto endFailedSource = [errors](GstPad*, PassingBuffer& picture) {
    if (errors->failure.load() == X11Failure::kNone) return GST_PAD_PROBE_OK;
    const GstBufferPtr ended = picture.Take();
    picture.Answer(GST_FLOW_FLUSHING);
    return GST_PAD_PROBE_HANDLED;
  };
  ForEachElementOf(pipeline, "ximagesrc", [&](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    AddBufferProbe(pad.get(), endFailedSource);
  });
}

// Whether a handler of the host that is in the place of `ours` was put behind
// it. One that is seen for the first time may be there for a single request.
template <typename Handler, typename Install>
bool TakeBack(Handler inPlace, std::type_identity_t<Handler> ours,
              Handler& seen, std::atomic<Handler>& inForce, Install install) {
  if (inPlace == nullptr || inPlace == ours) {
    seen = nullptr;
    return false;
  }
  if (std::exchange(seen, inPlace) != inPlace) return false;
  inForce.store(inPlace);
  install(ours);
  seen = nullptr;
  return true;
}

const char* FailureText(X11Failure failure) {
  return failure == X11Failure::kServerGone
             ? "the connection to the X server was lost"
             : "the captured X11 window was closed or is not a window of this "
               "X server";
}

}  // namespace

X11Guard::X11Guard() : errors_(std::make_shared<X11Errors>()) {
  const MutexLock lock(g_x11GuardsMutex);
  ++g_x11Guards;
  WatchOpenedDisplays();
  if (const XErrorHandler before = XSetErrorHandler(HandleError);
      before != HandleError) {
    g_hostErrorHandler.store(before);
    g_earlierErrorHandler.store(before);
  }
  if (const XIOErrorHandler before = XSetIOErrorHandler(HandleIoError);
      before != HandleIoError) {
    g_hostIoErrorHandler.store(before);
    g_earlierIoErrorHandler.store(before);
  }
}

X11Guard::~X11Guard() {
  const MutexLock lock(g_x11GuardsMutex);
  if (--g_x11Guards > 0) return;
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

void TakeX11HandlersBack() {
  const MutexLock lock(g_x11GuardsMutex);
  if (g_x11Guards == 0) return;
  const bool isErrorTaken = TakeBack(
      XlibErrorHandler(), HandleError, g_seenErrorHandler, g_hostErrorHandler,
      [](XErrorHandler handler) { XSetErrorHandler(handler); });
  const bool isIoErrorTaken =
      TakeBack(XlibIoErrorHandler(), HandleIoError, g_seenIoErrorHandler,
               g_hostIoErrorHandler,
               [](XIOErrorHandler handler) { XSetIOErrorHandler(handler); });
  if (isErrorTaken || isIoErrorTaken) {
    LogCaptureStage("pipeline:x11-error-handlers=taken-back");
  }
}

X11CaptureScope::X11CaptureScope(const X11Guard* guard) {
  if (guard == nullptr) return;
  t_x11Errors = guard->errors_;
  NoteDisplaysOfThisThread(true);
}

X11CaptureScope::~X11CaptureScope() {
  t_x11Errors.reset();
  NoteDisplaysOfThisThread(false);
}

void WatchX11Pipeline(GstElement* pipeline) {
  if (!t_x11Errors) return;
  SurviveLossOfOpenedDisplay();
  SetObjectData(pipeline, kErrorsKey,
                std::make_unique<SharedX11Errors>(t_x11Errors));
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  gst_bus_set_sync_handler(
      bus.get(), NoThrow<&OnSyncMessage>,
      std::make_unique<SharedX11Errors>(t_x11Errors).release(),
      NoThrow<&DeleteObjectData<SharedX11Errors>>);
  ProbeX11Source(pipeline, t_x11Errors);
}

bool HasX11Failed(GstElement* pipeline) {
  const X11Errors* errors = ErrorsOf(pipeline);
  return errors != nullptr && errors->failure.load() != X11Failure::kNone;
}

void PostX11Failure(GstElement* pipeline) {
  X11Errors* errors = pipeline == nullptr ? nullptr : ErrorsOf(pipeline);
  if (errors == nullptr) return;
  TakeX11HandlersBack();
  const X11Failure failure = errors->failure.load();
  if (failure == X11Failure::kNone || std::exchange(errors->isPosted, true)) {
    return;
  }
  PostElementError(pipeline, GST_RESOURCE_ERROR_READ, FailureText(failure),
                   failure == X11Failure::kServerGone
                       ? error_code::kDisplayLost
                       : error_code::kWindowClosed);
}

}  // namespace linux_capture
