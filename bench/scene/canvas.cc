#include "canvas.h"

#include <algorithm>

namespace linux_capture::bench {

Rectangle Intersection(const Rectangle& a, const Rectangle& b) {
  const int left = std::max(a.x, b.x);
  const int top = std::max(a.y, b.y);
  const int right = std::min(a.x + a.width, b.x + b.width);
  const int bottom = std::min(a.y + a.height, b.y + b.height);
  return {left, top, std::max(right - left, 0), std::max(bottom - top, 0)};
}

Canvas::Canvas(int width, int height)
    : width_(width),
      height_(height),
      pixels_(static_cast<std::size_t>(width) *
              static_cast<std::size_t>(height)) {}

void Canvas::Fill(const Rectangle& area, std::uint32_t colour) {
  const Rectangle inside = Intersection(area, {0, 0, width_, height_});
  for (int y = inside.y; y < inside.y + inside.height; ++y) {
    std::fill_n(&pixels_[Index(inside.x, y)], inside.width, colour);
  }
}

void Canvas::Copy(const Canvas& source, const Rectangle& area, int toX,
                  int toY) {
  for (int row = 0; row < area.height; ++row) {
    std::copy_n(&source.pixels_[source.Index(area.x, area.y + row)], area.width,
                &pixels_[Index(toX, toY + row)]);
  }
}

}  // namespace linux_capture::bench
