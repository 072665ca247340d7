#include "pixels/area_scaling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr std::uint8_t kUntouched = 0xa5;
constexpr int kPadding = 3;

// Leaves everything to plain code.
constexpr PixelRoutines kPlainCode = {
    .name = "plain",
    .weighRows = [](const WeighedRows&, int, std::uint8_t*) { return 0; },
    .weighColumns = [](const std::uint8_t*, const GroupedColumns&,
                       std::uint8_t*) { return 0; }};

std::vector<const PixelRoutines*> AllRoutines() {
  std::vector<const PixelRoutines*> all = RunnableRoutines();
  all.push_back(&kPlainCode);
  return all;
}

// A plane with room to the right that must stay as it is.
struct Plane {
  explicit Plane(PlaneSize planeSize)
      : size(planeSize),
        stride(planeSize.width + kPadding),
        samples(static_cast<std::size_t>(stride * planeSize.height),
                kUntouched) {}

  [[nodiscard]] int at(int x, int y) const {
    return samples[static_cast<std::size_t>(y * stride + x)];
  }

  PlaneSize size;
  int stride;
  std::vector<std::uint8_t> samples;
};

Plane RandomPlane(PlaneSize size) {
  Plane plane(size);
  std::mt19937 random(7);
  // Hard edges are where rounding shows most.
  std::generate(plane.samples.begin(), plane.samples.end(), [&] {
    return static_cast<std::uint8_t>(random() % 2 == 0 ? random() % 256
                                                       : random() % 2 * 255);
  });
  return plane;
}

// The part of source sample `at` in target sample `index`.
double Share(int from, int to, int index, int at) {
  const double step = static_cast<double>(from) / to;
  const double begin = std::max<double>(index * step, at);
  const double end = std::min<double>((index + 1) * step, at + 1);
  return std::max(0.0, end - begin) / step;
}

double ExactMean(const Plane& plane, PlaneSize to, int x, int y) {
  const auto first = [](int from, int target, int index) {
    return static_cast<int>(static_cast<double>(index) * from / target);
  };
  const auto last = [&first](int from, int target, int index) {
    return std::min(first(from, target, index + 1), from - 1);
  };
  double mean = 0;
  for (int row = first(plane.size.height, to.height, y);
       row <= last(plane.size.height, to.height, y); ++row) {
    for (int column = first(plane.size.width, to.width, x);
         column <= last(plane.size.width, to.width, x); ++column) {
      mean += plane.at(column, row) *
              Share(plane.size.height, to.height, y, row) *
              Share(plane.size.width, to.width, x, column);
    }
  }
  return mean;
}

Plane Scaled(const Plane& plane, PlaneSize to, const PixelRoutines& routines) {
  Plane out(to);
  AreaScaler scaler(plane.size, to, routines);
  scaler.Scale(plane.samples.data(), plane.stride, out.samples.data(),
               out.stride);
  return out;
}

struct Sizes {
  PlaneSize from;
  PlaneSize to;
};

using Scaling = std::tuple<const PixelRoutines*, Sizes>;

class AreaScalingTest : public testing::TestWithParam<Scaling> {
 protected:
  [[nodiscard]] static const PixelRoutines& Routines() {
    return *std::get<0>(GetParam());
  }
  [[nodiscard]] static PlaneSize From() { return std::get<1>(GetParam()).from; }
  [[nodiscard]] static PlaneSize To() { return std::get<1>(GetParam()).to; }

  Plane plane_ = RandomPlane(From());
};

TEST_P(AreaScalingTest, EverySampleIsTheMeanOfItsAreaWithinOneStep) {
  const Plane out = Scaled(plane_, To(), Routines());
  double error = 0;
  for (int y = 0; y < out.size.height; ++y) {
    for (int x = 0; x < out.size.width; ++x) {
      const double exact = ExactMean(plane_, out.size, x, y);
      ASSERT_LE(std::abs(out.at(x, y) - exact), 1.05) << x << "," << y;
      error += out.at(x, y) - exact;
    }
  }
  // Neither brighter nor darker as a whole, but for the halves of a picture
  // that is made smaller in one dimension alone.
  EXPECT_NEAR(error / (out.size.width * out.size.height), 0, 0.3);
}

TEST_P(AreaScalingTest, VectorsGiveWhatPlainCodeGives) {
  const Plane out = Scaled(plane_, To(), Routines());
  const Plane plain = Scaled(plane_, To(), kPlainCode);
  EXPECT_EQ(out.samples, plain.samples);
}

TEST_P(AreaScalingTest, NothingIsWrittenBesideThePlane) {
  const Plane out = Scaled(plane_, To(), Routines());
  for (int y = 0; y < out.size.height; ++y) {
    for (int x = out.size.width; x < out.stride; ++x) {
      ASSERT_EQ(out.at(x, y), kUntouched);
    }
  }
}

TEST_P(AreaScalingTest, NothingIsReadBesideThePlane) {
  // A block of exactly this size, whose end the address sanitizer watches.
  const PlaneSize from = From();
  const auto size = static_cast<std::size_t>(from.width * from.height);
  const auto exact = std::make_unique<std::uint8_t[]>(size);
  std::fill_n(exact.get(), size, std::uint8_t{9});
  Plane out(To());
  AreaScaler scaler(from, To(), Routines());
  scaler.Scale(exact.get(), from.width, out.samples.data(), out.stride);
  EXPECT_EQ(out.at(out.size.width - 1, out.size.height - 1), 9);
}

TEST_P(AreaScalingTest, AnEvenPlaneKeepsItsValue) {
  for (const int level : {0, 1, 127, 254, 255}) {
    std::fill(plane_.samples.begin(), plane_.samples.end(),
              static_cast<std::uint8_t>(level));
    const Plane out = Scaled(plane_, To(), Routines());
    for (int y = 0; y < out.size.height; ++y) {
      for (int x = 0; x < out.size.width; ++x) {
        ASSERT_EQ(out.at(x, y), level);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    RoutinesAndSizes, AreaScalingTest,
    testing::Combine(
        testing::ValuesIn(AllRoutines()),
        testing::Values(Sizes{{192, 108}, {128, 72}},  // two thirds
                        Sizes{{192, 108}, {96, 54}},   // a half
                        Sizes{{192, 108}, {48, 27}},   // a quarter
                        Sizes{{190, 44}, {44, 10}},    // the widest that fits
                        Sizes{{200, 50}, {16, 10}},    // too wide for one read
                        Sizes{{97, 31}, {96, 30}},     // hardly smaller
                        Sizes{{101, 53}, {37, 19}},    // odd all over
                        Sizes{{64, 40}, {64, 20}},     // one dimension alone
                        Sizes{{64, 40}, {32, 40}},     // and the other
                        Sizes{{40, 8}, {40, 8}},       // none
                        Sizes{{5, 3}, {1, 1}}, Sizes{{1, 1}, {1, 1}})),
    [](const testing::TestParamInfo<Scaling>& test) {
      return std::string(std::get<0>(test.param)->name) + "_" +
             std::to_string(test.index);
    });

}  // namespace
}  // namespace linux_capture
