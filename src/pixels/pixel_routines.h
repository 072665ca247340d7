#ifndef LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_
#define LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_

#include <cstdint>
#include <vector>

#include "pixels/area_spans.h"
#include "pixels/conversion_rows.h"

namespace linux_capture {

// What can be done for many samples at once. Each does as many as fit, from the
// left, and returns how many; plain code does the rest, so that a routine that
// always returns 0 gives the same picture.
struct PixelRoutines {
  // Of the instructions that they are written in.
  const char* name = "";
  // An even number of pixels.
  int (*convertRowPair)(const RowPair& rows, int width,
                        const ConversionWeights& weights) = nullptr;
  int (*weighRows)(const WeighedRows& rows, int width,
                   std::uint8_t* out) = nullptr;
  int (*weighColumns)(const std::uint8_t* row, const GroupedColumns& columns,
                      std::uint8_t* out) = nullptr;
};

// Those in this processor's best vector instructions; null where it has none
// that they are written in.
const PixelRoutines* VectorRoutines();

// All that this processor can run, the best first.
std::vector<const PixelRoutines*> RunnableRoutines();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_H_
