#ifndef LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_
#define LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_

#include <cstddef>
#include <cstdint>
#include <span>

#include "pixels/area_spans.h"
#include "pixels/conversion_rows.h"

namespace linux_capture {

// What can be done for many samples at once. Each does as many as fit, from the
// left, and returns how many; plain code does the rest, so that a routine that
// always returns 0 gives the same picture.
struct PixelRoutines {
  // An even number of pixels.
  int (*convertRowPair)(const RowPair& rows, int width,
                        const ConversionWeights& weights) = nullptr;
  int (*weighRows)(const std::uint8_t* rows, std::ptrdiff_t stride,
                   std::span<const std::int16_t> weights, int width,
                   std::uint8_t* out) = nullptr;
  int (*weighColumns)(const std::uint8_t* row, const ColumnGroups& columns,
                      std::uint8_t* out) = nullptr;
};

// Those in this processor's vector instructions; null where it has none that
// they are written in.
const PixelRoutines* VectorRoutines();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_
