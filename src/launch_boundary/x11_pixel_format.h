#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PIXEL_FORMAT_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PIXEL_FORMAT_H_

#include <xcb/xcb.h>

namespace linux_capture {

// ximagesrc takes ten bits of a colour for eight, so that a 30-bit screen has
// wrong colours, and reads no palettes: its thread asks for pictures of an
// 8-bit screen without end, and the capture cannot be stopped. Throws
// CodedError where the screen's own pixels are of such a format.
void RequireReadablePixels(const xcb_screen_t& screen);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PIXEL_FORMAT_H_
