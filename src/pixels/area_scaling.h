#ifndef LINUX_CAPTURE_PIXELS_AREA_SCALING_H_
#define LINUX_CAPTURE_PIXELS_AREA_SCALING_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pixels/area_spans.h"

namespace linux_capture {

struct PixelRoutines;

struct PlaneSize {
  int width = 0;
  int height = 0;
};

// Makes planes of 8-bit samples smaller: every sample is the mean of the area
// that it covers, within one step of the exact one. Nothing of the source is
// left out and nothing counts twice, so text stays as legible as it can.
class AreaScaler {
 public:
  // Both sizes are positive and `to` is not larger than `from`. `routines`
  // outlives the scaler.
  AreaScaler(PlaneSize from, PlaneSize to, const PixelRoutines& routines);

  // Any thread, one at a time; allocates nothing. Strides in bytes.
  void Scale(const std::uint8_t* in, std::ptrdiff_t inStride, std::uint8_t* out,
             std::ptrdiff_t outStride);

 private:
  const PixelRoutines* routines_;
  AreaSpans columns_;
  AreaSpans rows_;
  ColumnGroups groups_;
  // A row of the source's width and the target's height.
  std::vector<std::uint8_t> row_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_AREA_SCALING_H_
