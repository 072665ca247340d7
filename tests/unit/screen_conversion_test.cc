#include "pixels/screen_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr std::uint8_t kUntouched = 0xa5;
constexpr int kPadding = 3;

// Leaves everything to plain code.
constexpr PixelRoutines kPlainCode = {
    .convertRowPair = [](const RowPair&, int, const ConversionWeights&) {
      return 0;
    }};

// Planes with room to the right that must stay as it is.
struct Planes {
  Planes(int width, int height)
      : chromaWidth((width + 1) / 2),
        chromaHeight((height + 1) / 2),
        y(static_cast<std::size_t>((width + kPadding) * height), kUntouched),
        u(static_cast<std::size_t>((chromaWidth + kPadding) * chromaHeight),
          kUntouched),
        v(u),
        out{y.data(),
            u.data(),
            v.data(),
            width + kPadding,
            chromaWidth + kPadding,
            chromaWidth + kPadding} {}

  bool operator==(const Planes& other) const {
    return y == other.y && u == other.u && v == other.v;
  }

  int chromaWidth;
  int chromaHeight;
  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> u;
  std::vector<std::uint8_t> v;
  I420Planes out;
};

struct Screen {
  Screen(int width, int height, PixelOrder order)
      : bytes(static_cast<std::size_t>((width + kPadding) * height * 4)),
        picture{bytes.data(), (width + kPadding) * 4, width, height, order} {
    std::mt19937 random(20);
    std::generate(bytes.begin(), bytes.end(),
                  [&] { return static_cast<std::uint8_t>(random()); });
  }

  [[nodiscard]] std::array<double, 3> ColourAt(int x, int y) const {
    const std::uint8_t* pixel =
        picture.pixels + y * picture.stride + std::ptrdiff_t{x} * 4;
    return {static_cast<double>(pixel[picture.order.red]),
            static_cast<double>(pixel[picture.order.green]),
            static_cast<double>(pixel[picture.order.blue])};
  }

  std::vector<std::uint8_t> bytes;
  ScreenPicture picture;
};

double ExactLuma(const std::array<double, 3>& colour) {
  return 0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2];
}

// Rounding to the nearest is half a step; the weights are a hair off.
constexpr double kTolerance = 0.52;

using SizeAndOrder = std::tuple<std::pair<int, int>, PixelOrder>;

class ScreenConversionTest : public testing::TestWithParam<SizeAndOrder> {
 protected:
  void SetUp() override { ASSERT_NE(VectorRoutines(), nullptr); }

  [[nodiscard]] static int Width() { return std::get<0>(GetParam()).first; }
  [[nodiscard]] static int Height() { return std::get<0>(GetParam()).second; }

  Screen screen_{Width(), Height(), std::get<1>(GetParam())};
  Planes planes_{Width(), Height()};
};

TEST_P(ScreenConversionTest, LumaIsTheNearestToTheExactOne) {
  ConvertScreenToI420(screen_.picture, planes_.out, *VectorRoutines());
  for (int row = 0; row < Height(); ++row) {
    for (int x = 0; x < Width(); ++x) {
      ASSERT_NEAR(planes_.out.y[row * planes_.out.yStride + x],
                  ExactLuma(screen_.ColourAt(x, row)), kTolerance)
          << x << "," << row;
    }
  }
}

TEST_P(ScreenConversionTest, ChromaIsTheMeanOfThePixelsThatShareIt) {
  ConvertScreenToI420(screen_.picture, planes_.out, *VectorRoutines());
  for (int row = 0; row < planes_.chromaHeight; ++row) {
    for (int x = 0; x < planes_.chromaWidth; ++x) {
      double u = 128;
      double v = 128;
      for (const int dy : {0, 1}) {
        for (const int dx : {0, 1}) {
          const auto colour =
              screen_.ColourAt(std::min(2 * x + dx, Width() - 1),
                               std::min(2 * row + dy, Height() - 1));
          u += (colour[2] - ExactLuma(colour)) / 1.8556 / 4;
          v += (colour[0] - ExactLuma(colour)) / 1.5748 / 4;
        }
      }
      ASSERT_NEAR(planes_.out.u[row * planes_.out.uStride + x],
                  std::min(u, 255.0), kTolerance);
      ASSERT_NEAR(planes_.out.v[row * planes_.out.vStride + x],
                  std::min(v, 255.0), kTolerance);
    }
  }
}

TEST_P(ScreenConversionTest, VectorsGiveWhatPlainCodeGives) {
  Planes plain(Width(), Height());
  ConvertScreenToI420(screen_.picture, planes_.out, *VectorRoutines());
  ConvertScreenToI420(screen_.picture, plain.out, kPlainCode);
  EXPECT_TRUE(planes_ == plain);
}

TEST_P(ScreenConversionTest, NothingIsWrittenBesideThePicture) {
  ConvertScreenToI420(screen_.picture, planes_.out, *VectorRoutines());
  for (int row = 0; row < Height(); ++row) {
    for (int x = Width(); x < Width() + kPadding; ++x) {
      ASSERT_EQ(planes_.out.y[row * planes_.out.yStride + x], kUntouched);
    }
  }
  for (int row = 0; row < planes_.chromaHeight; ++row) {
    for (int x = planes_.chromaWidth; x < planes_.chromaWidth + kPadding; ++x) {
      ASSERT_EQ(planes_.out.u[row * planes_.out.uStride + x], kUntouched);
      ASSERT_EQ(planes_.out.v[row * planes_.out.vStride + x], kUntouched);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    SizesAndOrders, ScreenConversionTest,
    testing::Combine(testing::Values(std::pair(64, 4), std::pair(100, 6),
                                     std::pair(33, 3), std::pair(31, 1),
                                     std::pair(1, 1), std::pair(2, 2)),
                     testing::Values(PixelOrder{2, 1, 0}, PixelOrder{0, 1, 2},
                                     PixelOrder{1, 2, 3},
                                     PixelOrder{3, 2, 1})));

TEST(ScreenConversionExtremesTest, GreysAreGreyAndTheEndsAreReached) {
  for (int level = 0; level <= 255; ++level) {
    const std::vector<std::uint8_t> bytes(std::size_t{64} * 2 * 4,
                                          static_cast<std::uint8_t>(level));
    Planes planes(64, 2);
    ConvertScreenToI420({bytes.data(), 64 * 4, 64, 2, {2, 1, 0}}, planes.out,
                        *VectorRoutines());
    EXPECT_EQ(planes.y[0], level);
    EXPECT_EQ(planes.u[0], 128);
    EXPECT_EQ(planes.v[0], 128);
  }
}

}  // namespace
}  // namespace linux_capture
