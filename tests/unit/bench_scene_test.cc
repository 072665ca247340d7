#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "barcode.h"
#include "canvas.h"
#include "i420.h"
#include "scene_picture.h"

namespace linux_capture::bench {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;

std::vector<std::uint32_t> Pixels(const Canvas& canvas) {
  return {canvas.data(), canvas.data() + kWidth * kHeight};
}

Canvas WholePicture(const ScenePicture& scene, std::uint32_t number) {
  Canvas canvas(kWidth, kHeight);
  DrawSteps(scene.Steps(number, std::nullopt), canvas);
  return canvas;
}

TEST(BenchScene, DrawingOverTheLastPictureGivesTheWholePicture) {
  for (const char* kind : {"moving", "still", "terminal", "film"}) {
    SCOPED_TRACE(kind);
    const ScenePicture scene(kWidth, kHeight, SceneKindOf(kind));
    Canvas screen = WholePicture(scene, 0);
    std::uint32_t shown = 0;
    // Long enough for the text to come round and for pictures left out.
    for (std::uint32_t number = 1; number < 700; number += 1 + number % 3) {
      DrawSteps(scene.Steps(number, shown), screen);
      ASSERT_EQ(Pixels(screen), Pixels(WholePicture(scene, number)))
          << "picture " << number;
      shown = number;
    }
  }
}

TEST(BenchScene, MotionChangesThePictureBelowTheBarcodeAndStillnessDoesNot) {
  for (const char* kind : {"moving", "still", "terminal", "film"}) {
    SCOPED_TRACE(kind);
    const ScenePicture scene(kWidth, kHeight, SceneKindOf(kind));
    const auto first = Pixels(WholePicture(scene, 1));
    const auto second = Pixels(WholePicture(scene, 2));
    constexpr std::ptrdiff_t kBarcode = std::ptrdiff_t{kHeight} / 15 * kWidth;
    EXPECT_FALSE(
        std::equal(first.begin(), first.begin() + kBarcode, second.begin()));
    EXPECT_EQ(std::equal(first.begin() + kBarcode, first.end(),
                         second.begin() + kBarcode),
              std::string(kind) == "still");
  }
}

TEST(BenchBarcode, NumbersDifferInSeveralCells) {
  for (std::uint32_t number = 0; number < 2000; ++number) {
    const std::uint32_t change =
        BarcodeCells(number) ^ BarcodeCells(number + 1);
    ASSERT_GE(__builtin_popcount(change), 3) << number;
  }
}

TEST(BenchBarcode, NoNumberIsABlankRow) {
  EXPECT_NE(BarcodeCells(0), 0U);
  EXPECT_NE(BarcodeCells(kNumberLimit - 1), 0xffffffffU);
}

std::vector<int> SamplesOf(std::uint32_t colour, const ColourCode& code) {
  Canvas canvas(64, 64);
  canvas.Fill({0, 0, 64, 64}, colour);
  const I420Picture picture = ConvertToI420(canvas, 16, 16, code);
  EXPECT_EQ(std::set<int>(picture.y.begin(), picture.y.end()).size(), 1U);
  return {picture.y.at(0), picture.u.at(0), picture.v.at(0)};
}

TEST(BenchReference, KnownColoursHaveTheirKnownSamples) {
  using Samples = std::vector<int>;
  const ColourCode full709 = ColourCodeOf("bt709", "full");
  EXPECT_EQ(SamplesOf(0xffffff, full709), (Samples{255, 128, 128}));
  EXPECT_EQ(SamplesOf(0x000000, full709), (Samples{0, 128, 128}));
  EXPECT_EQ(SamplesOf(0xc81e32, full709), (Samples{68, 119, 212}));
  EXPECT_EQ(SamplesOf(0xc81e32, ColourCodeOf("bt709", "limited")),
            (Samples{74, 120, 202}));
  EXPECT_EQ(SamplesOf(0xffffff, ColourCodeOf("bt601", "limited")),
            (Samples{235, 128, 128}));
  EXPECT_EQ(SamplesOf(0xff0000, ColourCodeOf("bt601", "limited")),
            (Samples{81, 90, 240}));
}

TEST(BenchReference, ASmallerPictureIsTheMeanOfWhatItCovers) {
  Canvas canvas(64, 64);
  // Stripes of one white and two black columns.
  for (int x = 0; x < 64; x += 3) canvas.Fill({x, 0, 1, 64}, 0xffffff);
  canvas.Fill({63, 0, 1, 64}, 0x000000);
  const I420Picture picture =
      ConvertToI420(canvas, 64 / 4, 64 / 4, ColourCodeOf("bt709", "full"));
  // Four columns hold one or two white ones.
  EXPECT_EQ(picture.y.at(0), 128);
  EXPECT_EQ(picture.y.at(1), 64);
}

TEST(BenchReference, UnknownColourCodesAreRefused) {
  EXPECT_THROW(ColourCodeOf("bt2020", "full"), std::runtime_error);
  EXPECT_THROW(ColourCodeOf("bt709", "wide"), std::runtime_error);
}

}  // namespace
}  // namespace linux_capture::bench
