#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_SOURCE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_SOURCE_CHECK_H_

#include <gst/gst.h>

#include <cstdint>
#include <optional>

#include "config/capture_config.h"

namespace linux_capture {

// The size of an X11 screen in pixels.
struct X11ScreenSize {
  std::int32_t width = 0;
  std::int32_t height = 0;
};

// ximagesrc accepts a window that does not exist, and records the whole screen
// when a rectangle does not lie inside it. So what a request names is looked up
// before the launch, over a connection of its own that ends at once.

// Throws CodedError when the window does not exist, or when the
// rectangle cannot be captured. Empty when the server cannot be reached, which
// the launch reports in its own words.
std::optional<X11ScreenSize> RequireX11Source(const CaptureConfig& config);

// Whether the X server of the environment does anything at all within half a
// second.
bool X11ServerAnswers();

// The part of RequireX11Source that needs no server: the rectangle against a
// screen of that size.
void RequireRectangleOnScreen(const CaptureConfig& config,
                              const X11ScreenSize& screen);

// Limits a launched source to the part of its rectangle that is on the screen:
// a screen that became smaller leaves the host with a rectangle that reaches
// beyond its right or lower edge. That part keeps its proportions: borders fill
// the rest of a branch.
void LimitToScreen(GstElement* pipeline, const CaptureConfig& config,
                   const X11ScreenSize& screen);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_SOURCE_CHECK_H_
