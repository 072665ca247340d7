#include "launch_boundary/x11_pixel_format.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

// What the root window is drawn in, or null.
const xcb_visualtype_t* RootVisual(const xcb_screen_t& screen) {
  auto depths = xcb_screen_allowed_depths_iterator(&screen);
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    auto visuals = xcb_depth_visuals_iterator(depths.data);
    for (; visuals.rem > 0; xcb_visualtype_next(&visuals)) {
      if (visuals.data->visual_id == screen.root_visual) return visuals.data;
    }
  }
  // Untested: an X server lists the visual of its root window.
  return nullptr;
}

[[noreturn]] void RefusePixels(const xcb_screen_t& screen, const char* reason) {
  throw CodedError(error_code::kNotSupported,
                   "the X11 screen of depth " +
                       std::to_string(static_cast<int>(screen.root_depth)) +
                       " cannot be captured: " + reason);
}

}  // namespace

void RequireReadablePixels(const xcb_screen_t& screen) {
  const xcb_visualtype_t* visual = RootVisual(screen);
  if (visual == nullptr) return;
  if (visual->_class != XCB_VISUAL_CLASS_TRUE_COLOR &&
      visual->_class != XCB_VISUAL_CLASS_DIRECT_COLOR) {
    RefusePixels(screen, "its pixels are numbers of a palette");
  }
  constexpr int kMostBits = 8;
  const int bits = std::max({std::popcount(visual->red_mask),
                             std::popcount(visual->green_mask),
                             std::popcount(visual->blue_mask)});
  if (bits > kMostBits) {
    RefusePixels(screen, "its colours have more than 8 bits");
  }
}

}  // namespace linux_capture
