#include "select/selection.h"

#include <X11/Xutil.h>
#include <X11/cursorfont.h>
#include <X11/keysym.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "base/c_callback.h"
#include "common/program_error.h"

namespace linux_capture::select {
namespace {

using programs::kStatusCancelled;
using programs::kStatusRefused;
using programs::ProgramError;

// A smaller one is a click.
constexpr int kLeastEdge = 2;

struct DisplayDeleter {
  void operator()(Display* display) const noexcept { XCloseDisplay(display); }
};
// Its end also ends the grabs.
using DisplayPtr = std::unique_ptr<Display, DisplayDeleter>;

[[noreturn]] int HandleIoError(Display* /*display*/) {
  std::fputs("linux-capture-select: the connection to the X server was lost\n",
             stderr);
  _exit(kStatusRefused);
}

DisplayPtr Open() {
  XSetIOErrorHandler(NoThrow<&HandleIoError>);
  DisplayPtr display(XOpenDisplay(nullptr));
  if (display) return display;
  const char* name = std::getenv("DISPLAY");
  throw ProgramError(
      kStatusRefused,
      name == nullptr
          ? std::string("no X display: DISPLAY is not set")
          : "the X display \"" + std::string(name) + "\" cannot be reached");
}

// The menu or the key by which the program was started may still be held.
void Grab(const char* what, const std::function<int()>& grab) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kLongest{3};
  constexpr std::chrono::milliseconds kPause{50};
  const Clock::time_point deadline = Clock::now() + kLongest;
  while (grab() != GrabSuccess) {
    if (Clock::now() >= deadline) {
      throw ProgramError(
          kStatusRefused,
          std::string("another program holds the ") + what + " of the screen");
    }
    std::this_thread::sleep_for(kPause);
  }
}

void GrabInput(Display* display) {
  const Window root = DefaultRootWindow(display);
  const Cursor cursor = XCreateFontCursor(display, XC_crosshair);
  Grab("pointer", [&] {
    return XGrabPointer(display, root, False,
                        ButtonPressMask | ButtonReleaseMask | PointerMotionMask,
                        GrabModeAsync, GrabModeAsync, root, cursor,
                        CurrentTime);
  });
  Grab("keyboard", [&] {
    return XGrabKeyboard(display, root, False, GrabModeAsync, GrabModeAsync,
                         CurrentTime);
  });
}

struct Point {
  int x = 0;
  int y = 0;
};

// Both of the corners are in it.
Rectangle Between(const Point& one, const Point& other) {
  return {std::min(one.x, other.x), std::min(one.y, other.y),
          std::abs(one.x - other.x) + 1, std::abs(one.y - other.y) + 1};
}

// Only the last of many moves is worth a frame.
XEvent NextEvent(Display* display) {
  XEvent event{};
  XNextEvent(display, &event);
  while (event.type == MotionNotify &&
         XCheckTypedEvent(display, MotionNotify, &event) != 0) {
  }
  return event;
}

[[noreturn]] void GiveUp() {
  throw ProgramError(kStatusCancelled, "no region was chosen");
}

class Selection {
 public:
  explicit Selection(Display* display) : display_(display), band_(display) {}

  Rectangle Run() {
    for (;;) {
      const std::optional<Rectangle> chosen = Take(NextEvent(display_));
      if (chosen) return *chosen;
    }
  }

 private:
  std::optional<Rectangle> Take(XEvent event) {
    switch (event.type) {
      case KeyPress:
        if (XLookupKeysym(&event.xkey, 0) == XK_Escape) GiveUp();
        return std::nullopt;
      case ButtonPress:
        Press(event.xbutton);
        return std::nullopt;
      case MotionNotify:
        if (begin_) {
          band_.Show(
              Between(*begin_, {event.xmotion.x_root, event.xmotion.y_root}));
        }
        return std::nullopt;
      case ButtonRelease:
        return Release(event.xbutton);
      default:
        return std::nullopt;
    }
  }

  void Press(const XButtonEvent& event) {
    if (event.button == Button3) GiveUp();
    if (event.button == Button1) begin_ = Point{event.x_root, event.y_root};
  }

  std::optional<Rectangle> Release(const XButtonEvent& event) {
    if (event.button != Button1 || !begin_) return std::nullopt;
    const Rectangle drawn = Between(*begin_, {event.x_root, event.y_root});
    begin_.reset();
    band_.Hide();
    if (drawn.width < kLeastEdge || drawn.height < kLeastEdge) {
      return std::nullopt;
    }
    return drawn;
  }

  Display* display_;
  RubberBand band_;
  std::optional<Point> begin_;
};

}  // namespace

Rectangle SelectRectangle() {
  const DisplayPtr display = Open();
  GrabInput(display.get());
  const Rectangle chosen = Selection(display.get()).Run();
  // Whoever captures next must not see the frame.
  XSync(display.get(), True);
  return chosen;
}

}  // namespace linux_capture::select
