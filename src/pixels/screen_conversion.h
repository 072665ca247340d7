#ifndef LINUX_CAPTURE_PIXELS_SCREEN_CONVERSION_H_
#define LINUX_CAPTURE_PIXELS_SCREEN_CONVERSION_H_

#include <cstddef>
#include <cstdint>

namespace linux_capture {

struct PixelRoutines;

// Where the colours lie in the four bytes of a screen's pixel.
struct PixelOrder {
  int red = 0;
  int green = 0;
  int blue = 0;
};

// A picture of four bytes a pixel; the fourth byte is not looked at.
struct ScreenPicture {
  const std::uint8_t* pixels = nullptr;
  std::ptrdiff_t stride = 0;  // bytes
  int width = 0;
  int height = 0;
  PixelOrder order;
};

// Planes of the same size as the picture; chroma halved, rounding up.
struct I420Planes {
  std::uint8_t* y = nullptr;
  std::uint8_t* u = nullptr;
  std::uint8_t* v = nullptr;
  std::ptrdiff_t yStride = 0;
  std::ptrdiff_t uStride = 0;
  std::ptrdiff_t vStride = 0;
};

// Converts to full-range BT.709, every sample rounded to the nearest; chroma is
// the mean of the pixels that share it. Any thread; allocates nothing.
void ConvertScreenToI420(const ScreenPicture& picture, const I420Planes& out,
                         const PixelRoutines& routines);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_SCREEN_CONVERSION_H_
