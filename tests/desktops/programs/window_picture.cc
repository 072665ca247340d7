#include "window_picture.h"

#include <algorithm>
#include <array>

namespace linux_capture::wayland_window {
namespace {

constexpr std::uint32_t kGround = 0x404040;
constexpr std::array<std::uint32_t, 8> kPatches = {0xc81e32, 0x1ea03c, 0x2850c8,
                                                   0xdcb414, 0x808080, 0xffffff,
                                                   0x000000, 0x20b4b4};

struct Area {
  int left;
  int top;
  int right;
  int bottom;
};

void Fill(std::span<std::uint32_t> pixels, Size size, Area area,
          std::uint32_t colour) {
  for (int y = area.top; y < area.bottom; ++y) {
    const auto row = pixels.subspan(
        static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width) +
            static_cast<std::size_t>(area.left),
        static_cast<std::size_t>(area.right - area.left));
    std::fill(row.begin(), row.end(), colour);
  }
}

}  // namespace

void PaintPicture(std::span<std::uint32_t> pixels, Size size, unsigned number) {
  const auto [width, height] = size;
  Fill(pixels, size, {0, 0, width, height}, kGround);
  for (int bit = 0; bit < 16; ++bit) {
    const bool isSet = (number >> (15 - bit) & 1U) != 0;
    const int left = width * bit / 16;
    const int right = width * (bit + 1) / 16;
    Fill(pixels, size, {left, 0, right, height / 8}, isSet ? 0xffffff : 0);
    Fill(pixels, size, {left, height / 8, right, height / 4},
         isSet ? 0 : 0xffffff);
  }
  for (int patch = 0; patch < 8; ++patch) {
    const int column = patch % 4;
    const int row = patch / 4;
    Fill(pixels, size,
         {width * column / 4, height * (2 + 2 * row) / 8,
          width * (column + 1) / 4, height * (4 + 2 * row) / 8},
         kPatches[static_cast<std::size_t>(patch)]);
  }
}

}  // namespace linux_capture::wayland_window
