#include "pixels/screen_conversion.h"

#include <algorithm>
#include <cstdint>

#include "pixels/conversion_rows.h"
#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr int kBytesPerPixel = 4;

int WeightedSum(const ByteWeights& weights, const std::uint8_t* pixel) {
  int sum = 0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    sum += weights[i] * pixel[i];
  }
  return sum;
}

std::uint8_t LumaOf(const ByteWeights& weights, const std::uint8_t* pixel) {
  constexpr int kHalf = 1 << (kWeightBits - 1);
  return static_cast<std::uint8_t>((WeightedSum(weights, pixel) + kHalf) >>
                                   kWeightBits);
}

std::uint8_t ChromaOf(int sumOfFour) {
  constexpr int kCentre = 128 << kChromaBits;
  constexpr int kHalf = 1 << (kChromaBits - 1);
  const int value = (sumOfFour + kCentre + kHalf) >> kChromaBits;
  return static_cast<std::uint8_t>(std::min(value, 255));
}

}  // namespace

// BT.709 in 1/32768: each row of weights has its exact sum, so that grey stays
// grey and white stays white.
ConversionWeights WeightsFor(const PixelOrder& order) {
  ConversionWeights weights;
  const auto set = [&order](ByteWeights& to, std::int16_t red,
                            std::int16_t green, std::int16_t blue) {
    to[static_cast<std::size_t>(order.red)] = red;
    to[static_cast<std::size_t>(order.green)] = green;
    to[static_cast<std::size_t>(order.blue)] = blue;
  };
  set(weights.y, 6966, 23436, 2366);
  set(weights.u, -3755, -12629, 16384);
  set(weights.v, 16384, -14883, -1501);
  return weights;
}

void ConvertRowPairPortably(const RowPair& rows, int begin, int width,
                            const ConversionWeights& weights) {
  for (int x = begin; x < width; x += 2) {
    // The last column of an odd width stands for the missing one.
    const int right = std::min(x + 1, width - 1);
    int u = 0;
    int v = 0;
    for (const int column : {x, right}) {
      const std::ptrdiff_t offset = std::ptrdiff_t{column} * kBytesPerPixel;
      const std::uint8_t* top = rows.top + offset;
      const std::uint8_t* bottom = rows.bottom + offset;
      rows.topY[column] = LumaOf(weights.y, top);
      rows.bottomY[column] = LumaOf(weights.y, bottom);
      u += WeightedSum(weights.u, top) + WeightedSum(weights.u, bottom);
      v += WeightedSum(weights.v, top) + WeightedSum(weights.v, bottom);
    }
    rows.u[x / 2] = ChromaOf(u);
    rows.v[x / 2] = ChromaOf(v);
  }
}

void ConvertScreenToI420(const ScreenPicture& picture, const I420Planes& out,
                         const PixelRoutines& routines) {
  const ConversionWeights weights = WeightsFor(picture.order);
  for (int row = 0; row < picture.height; row += 2) {
    const int below = std::min(row + 1, picture.height - 1);
    const RowPair rows = {
        .top = picture.pixels + row * picture.stride,
        .bottom = picture.pixels + below * picture.stride,
        .topY = out.y + row * out.yStride,
        .bottomY = out.y + below * out.yStride,
        .u = out.u + row / 2 * out.uStride,
        .v = out.v + row / 2 * out.vStride,
    };
    const int done = routines.convertRowPair(rows, picture.width, weights);
    ConvertRowPairPortably(rows, done, picture.width, weights);
  }
}

}  // namespace linux_capture
