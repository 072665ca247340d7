#ifndef LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_AVX2_H_
#define LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_AVX2_H_

#ifdef __x86_64__

#include <cstddef>
#include <cstdint>
#include <span>

#include "pixels/area_spans.h"
#include "pixels/conversion_rows.h"

namespace linux_capture {

// The PixelRoutines for processors with AVX2. Not to be called on others.

int ConvertRowPairByAvx2(const RowPair& rows, int width,
                         const ConversionWeights& weights);

int WeighRowsByAvx2(const std::uint8_t* rows, std::ptrdiff_t stride,
                    std::span<const std::int16_t> weights, int width,
                    std::uint8_t* out);

int WeighColumnsByAvx2(const std::uint8_t* row, const ColumnGroups& columns,
                       std::uint8_t* out);

}  // namespace linux_capture

#endif  // __x86_64__

#endif  // LINUX_CAPTURE_PIXELS_PIXEL_ROUTINES_AVX2_H_
