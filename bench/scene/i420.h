#ifndef LINUX_CAPTURE_BENCH_SCENE_I420_H_
#define LINUX_CAPTURE_BENCH_SCENE_I420_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "canvas.h"

namespace linux_capture::bench {

// How colours become Y'CbCr.
struct ColourCode {
  float red = 0.2126F;  // weights in luma; the rest is green's
  float blue = 0.0722F;
  bool isFullRange = true;
};

// "bt709" or "bt601", "full" or "limited"; throws std::runtime_error.
ColourCode ColourCodeOf(const std::string& matrix, const std::string& range);

// A picture in three planes without gaps, chroma halved both ways.
struct I420Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> u;
  std::vector<std::uint8_t> v;
};

// The picture at another, even size, not larger, without a
// converter's shortcuts: every sample is the mean colour of the area that it
// covers, rounded once.
I420Picture ConvertToI420(const Canvas& canvas, int width, int height,
                          const ColourCode& code);

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_I420_H_
