#ifndef LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_PICTURE_H_
#define LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_PICTURE_H_

#include <cstdint>
#include <span>

namespace linux_capture::wayland_window {

struct Size {
  int width = 0;
  int height = 0;
  bool operator==(const Size&) const = default;
};

// Paints the numbered picture that the tests read: sixteen cells of the number
// with their opposites below, over two rows of four patches.
void PaintPicture(std::span<std::uint32_t> pixels, Size size, unsigned number);

}  // namespace linux_capture::wayland_window

#endif  // LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_PICTURE_H_
