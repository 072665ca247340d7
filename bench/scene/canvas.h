#ifndef LINUX_CAPTURE_BENCH_SCENE_CANVAS_H_
#define LINUX_CAPTURE_BENCH_SCENE_CANVAS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace linux_capture::bench {

struct Rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  friend bool operator==(const Rectangle&, const Rectangle&) = default;
};

// What two rectangles share; width or height is 0 when they share nothing.
Rectangle Intersection(const Rectangle& a, const Rectangle& b);

// Pixels in memory, each 0x00RRGGBB, rows without gaps.
class Canvas {
 public:
  Canvas(int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }

  std::uint32_t at(int x, int y) const { return pixels_[Index(x, y)]; }
  const std::uint32_t* data() const { return pixels_.data(); }

  void Set(int x, int y, std::uint32_t colour) {
    pixels_[Index(x, y)] = colour;
  }

  // The part of the rectangle that is inside.
  void Fill(const Rectangle& area, std::uint32_t colour);

  // Copies an area of `source`, which may not be this canvas; both areas must
  // be inside.
  void Copy(const Canvas& source, const Rectangle& area, int toX, int toY);

 private:
  std::size_t Index(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
           static_cast<std::size_t>(x);
  }

  int width_;
  int height_;
  std::vector<std::uint32_t> pixels_;
};

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_CANVAS_H_
