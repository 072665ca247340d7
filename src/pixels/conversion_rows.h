#ifndef LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_H_
#define LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_H_

#include <array>
#include <cstdint>

#include "pixels/screen_conversion.h"

namespace linux_capture {

// Weight of each of a pixel's four bytes, in 1/32768.
using ByteWeights = std::array<std::int16_t, 4>;

struct ConversionWeights {
  ByteWeights y{};
  ByteWeights u{};
  ByteWeights v{};
};

constexpr int kWeightBits = 15;
// A chroma sample is worked out from the sum of four pixels.
constexpr int kChromaBits = kWeightBits + 2;

ConversionWeights WeightsFor(const PixelOrder& order);

// Two rows of pixels that share a row of chroma. Below the last row of an odd
// height both are the same one.
struct RowPair {
  const std::uint8_t* top = nullptr;
  const std::uint8_t* bottom = nullptr;
  std::uint8_t* topY = nullptr;
  std::uint8_t* bottomY = nullptr;
  std::uint8_t* u = nullptr;
  std::uint8_t* v = nullptr;
};

// Converts the pixels from `begin`, which is even, to `width`.
void ConvertRowPairPortably(const RowPair& rows, int begin, int width,
                            const ConversionWeights& weights);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_H_
