#include "pixels/screen_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr std::uint8_t kUntouched = 0xa5;
constexpr int kPadding = 3;

// Leaves everything to plain code.
constexpr PixelRoutines kPlainCode = {
    .name = "plain",
    .convertRowPair = [](const RowPair&, int, const ConversionWeights&) {
      return 0;
    }};

std::vector<const PixelRoutines*> AllRoutines() {
  std::vector<const PixelRoutines*> all = RunnableRoutines();
  all.push_back(&kPlainCode);
  return all;
}

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

using Conversion =
    std::tuple<const PixelRoutines*, std::pair<int, int>, PixelOrder>;

class ScreenConversionTest : public testing::TestWithParam<Conversion> {
 protected:
  [[nodiscard]] static int Width() { return std::get<1>(GetParam()).first; }
  [[nodiscard]] static int Height() { return std::get<1>(GetParam()).second; }

  void Convert() {
    ConvertScreenToI420(screen_.picture, planes_.out, *std::get<0>(GetParam()));
  }

  Screen screen_{Width(), Height(), std::get<2>(GetParam())};
  Planes planes_{Width(), Height()};
};

TEST_P(ScreenConversionTest, LumaIsTheNearestToTheExactOne) {
  Convert();
  for (int row = 0; row < Height(); ++row) {
    for (int x = 0; x < Width(); ++x) {
      ASSERT_NEAR(planes_.out.y[row * planes_.out.yStride + x],
                  ExactLuma(screen_.ColourAt(x, row)), kTolerance)
          << x << "," << row;
    }
  }
}

TEST_P(ScreenConversionTest, ChromaIsTheMeanOfThePixelsThatShareIt) {
  Convert();
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
  Convert();
  ConvertScreenToI420(screen_.picture, plain.out, kPlainCode);
  EXPECT_TRUE(planes_ == plain);
}

TEST_P(ScreenConversionTest, NothingIsWrittenBesideThePicture) {
  Convert();
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
    RoutinesSizesAndOrders, ScreenConversionTest,
    testing::Combine(testing::ValuesIn(AllRoutines()),
                     testing::Values(std::pair(64, 4), std::pair(100, 6),
                                     std::pair(33, 3), std::pair(31, 1),
                                     std::pair(1, 1), std::pair(2, 2)),
                     testing::Values(PixelOrder{2, 1, 0}, PixelOrder{0, 1, 2},
                                     PixelOrder{1, 2, 3}, PixelOrder{3, 2, 1})),
    [](const testing::TestParamInfo<Conversion>& test) {
      return std::string(std::get<0>(test.param)->name) + "_" +
             std::to_string(test.index);
    });

TEST(ScreenConversionExtremesTest, GreysAreGreyAndTheEndsAreReached) {
  for (const PixelRoutines* routines : AllRoutines()) {
    SCOPED_TRACE(routines->name);
    for (int level = 0; level <= 255; ++level) {
      const std::vector<std::uint8_t> bytes(std::size_t{64} * 2 * 4,
                                            static_cast<std::uint8_t>(level));
      Planes planes(64, 2);
      ConvertScreenToI420({bytes.data(), 64 * 4, 64, 2, {2, 1, 0}}, planes.out,
                          *routines);
      EXPECT_EQ(planes.y[0], level);
      EXPECT_EQ(planes.u[0], 128);
      EXPECT_EQ(planes.v[0], 128);
    }
  }
}

// So that a routine that does nothing is not taken for a right one.
TEST(PixelRoutinesTest, EachDoesAllOfWhatFits) {
  constexpr int kWidth = 256;
  const std::vector<std::uint8_t> from(std::size_t{4} * kWidth, 1);
  std::vector<std::uint8_t> y(kWidth);
  std::vector<std::uint8_t> u(kWidth);
  std::vector<std::uint8_t> v(kWidth);
  const RowPair rows = {from.data(), from.data(), y.data(),
                        y.data(),    u.data(),    v.data()};
  const std::int16_t weight = 1 << kAreaWeightBits;
  const ColumnGroups columns = GroupColumns(AreaSpans(2 * kWidth, kWidth));
  for (const PixelRoutines* routines : RunnableRoutines()) {
    SCOPED_TRACE(routines->name);
    EXPECT_EQ(routines->convertRowPair(rows, kWidth, {}), kWidth);
    EXPECT_EQ(
        routines->weighRows({from.data(), 0, &weight, 1}, kWidth, y.data()),
        kWidth);
    EXPECT_EQ(routines->weighColumns(from.data(), columns.view(), y.data()),
              kWidth);
  }
}

TEST(PixelRoutinesTest, TheBestThatRunsIsTaken) {
  const auto runnable = RunnableRoutines();
  EXPECT_EQ(VectorRoutines(), runnable.empty() ? nullptr : runnable.front());
  const std::string best = runnable.empty() ? "none" : runnable.front()->name;
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) {
    EXPECT_EQ(best, "AVX2");
  } else if (__builtin_cpu_supports("sse4.2")) {
    EXPECT_EQ(best, "SSE4");
  } else if (__builtin_cpu_supports("ssse3")) {
    EXPECT_EQ(best, "SSSE3");
  } else {
    // Early releases of the library have nothing for such a processor.
    EXPECT_TRUE(best == "none" || best == "SSE2") << best;
  }
#elif defined(__aarch64__)
  EXPECT_TRUE(best.starts_with("NEON")) << best;
#endif
}

}  // namespace
}  // namespace linux_capture
