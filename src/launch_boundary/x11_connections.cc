#include "launch_boundary/x11_connections.h"

#include <dlfcn.h>

#include <atomic>
#include <memory>

namespace linux_capture {
namespace {

using InitDisplayLock = int (*)(Display*);

std::atomic<InitDisplayLock> g_xlibInitDisplayLock{nullptr};

thread_local bool t_isNotingDisplays = false;
thread_local Display* t_openedDisplay = nullptr;

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
  if (t_isNotingDisplays) t_openedDisplay = display;
  const InitDisplayLock xlib = g_xlibInitDisplayLock.load();
  return xlib != nullptr ? xlib(display) : 0;
}

// A variable of Xlib's own, null where this release has none of that name. The
// module is linked to Xlib, so what was found once stays there.
template <typename Value>
Value* XlibVariable(const char* name) {
  struct LibraryCloser {
    void operator()(void* library) const noexcept { dlclose(library); }
  };
  const std::unique_ptr<void, LibraryCloser> xlib(
      dlopen("libX11.so.6", RTLD_NOW | RTLD_NOLOAD));
  return xlib ? static_cast<Value*>(dlsym(xlib.get(), name)) : nullptr;
}

// There is no way to ask for a handler that would not change it.
template <typename Handler>
Handler HandlerIn(Handler* slot) {
  return slot == nullptr ? nullptr : std::atomic_ref<Handler>(*slot).load();
}

InitDisplayLock* InitDisplayLockHook() {
  static auto* const hook =
      XlibVariable<InitDisplayLock>("_XInitDisplayLock_fn");
  return hook;
}

}  // namespace

// Asked for ten times a second: looked up once.
XErrorHandler XlibErrorHandler() {
  static auto* const slot = XlibVariable<XErrorHandler>("_XErrorFunction");
  return HandlerIn(slot);
}

XIOErrorHandler XlibIoErrorHandler() {
  static auto* const slot = XlibVariable<XIOErrorHandler>("_XIOErrorFunction");
  return HandlerIn(slot);
}

void WatchOpenedDisplays() {
  InitDisplayLock* const hook = InitDisplayLockHook();
  if (hook == nullptr) return;
  std::atomic_ref<InitDisplayLock> slot(*hook);
  const InitDisplayLock current = slot.load();
  if (current != NoteOpenedDisplay) {
    g_xlibInitDisplayLock.store(current);
    slot.store(NoteOpenedDisplay);
  }
}

void UnwatchOpenedDisplays() {
  InitDisplayLock* const hook = InitDisplayLockHook();
  if (hook == nullptr) return;
  std::atomic_ref<InitDisplayLock> slot(*hook);
  InitDisplayLock ours = NoteOpenedDisplay;
  slot.compare_exchange_strong(ours, g_xlibInitDisplayLock.load());
}

void SurviveLossOfOpenedDisplay() {
  if (t_openedDisplay == nullptr) return;
  XSetIOErrorExitHandler(t_openedDisplay, StayAlive, nullptr);
  t_openedDisplay = nullptr;
}

void NoteDisplaysOfThisThread(bool isWanted) {
  t_isNotingDisplays = isWanted;
  if (!isWanted) t_openedDisplay = nullptr;
}

}  // namespace linux_capture
