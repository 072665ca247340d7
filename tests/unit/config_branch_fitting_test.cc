#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>

#include "config/branch_fitting.h"

namespace linux_capture {
namespace {

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();

VideoBranchConfig Branch(std::int32_t width, std::int32_t height) {
  return {0, width, height, 30, 1000000, 100000, 2000000};
}

std::string RefusalOf(const VideoBranchConfig& branch) {
  try {
    ValidateVideoBranchConfig(branch);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

struct Size {
  std::int32_t width;
  std::int32_t height;
  friend bool operator==(const Size&, const Size&) = default;
};

std::ostream& operator<<(std::ostream& out, const Size& size) {
  return out << size.width << 'x' << size.height;
}

Size Fitted(Size branch, Size source, std::int32_t divisor) {
  const VideoBranchConfig fitted =
      ScaleBranchToFitSourceAspect(Branch(branch.width, branch.height),
                                   source.width, source.height, divisor);
  return {fitted.width, fitted.height};
}

TEST(BranchValidationTest, AcceptsTheSmallestBranch) {
  EXPECT_EQ(RefusalOf({0, 2, 2, 1, 1, 0, 1}), "");
}

TEST(BranchValidationTest, AcceptsTheLargestEvenBranch) {
  EXPECT_EQ(RefusalOf({0, kIntMax - 1, kIntMax - 1, kIntMax, kIntMax, kIntMax,
                       kIntMax}),
            "");
}

TEST(BranchValidationTest, DoesNotLookAtTheMinimumBitrate) {
  VideoBranchConfig branch = Branch(640, 360);
  branch.minBitrate = -1;
  EXPECT_EQ(RefusalOf(branch), "");
}

TEST(BranchValidationTest, RefusesSizesThatAreNotPositive) {
  const std::string message =
      "video branch 0 requires positive width and height";
  EXPECT_EQ(RefusalOf(Branch(0, 360)), message);
  EXPECT_EQ(RefusalOf(Branch(640, 0)), message);
  EXPECT_EQ(RefusalOf(Branch(-2, 360)), message);
  EXPECT_EQ(RefusalOf(Branch(640, kIntMin)), message);
}

TEST(BranchValidationTest, RefusesOddSizes) {
  const std::string message =
      "video branch 0 requires even width and height for H.264";
  EXPECT_EQ(RefusalOf(Branch(641, 360)), message);
  EXPECT_EQ(RefusalOf(Branch(640, 361)), message);
  EXPECT_EQ(RefusalOf(Branch(1, 1)), message);
}

TEST(BranchValidationTest, RefusesFrameRatesBelowOne) {
  VideoBranchConfig branch = Branch(640, 360);
  branch.fps = 0;
  EXPECT_EQ(RefusalOf(branch), "video branch 0 requires positive fps");
  branch.fps = -30;
  EXPECT_EQ(RefusalOf(branch), "video branch 0 requires positive fps");
}

TEST(BranchValidationTest, RefusesBitratesThatAreNotPositive) {
  const std::string message =
      "video branch 0 requires positive bitrate and maxBitrate";
  VideoBranchConfig branch = Branch(640, 360);
  branch.bitrate = 0;
  EXPECT_EQ(RefusalOf(branch), message);
  branch.bitrate = 1;
  branch.maxBitrate = 0;
  EXPECT_EQ(RefusalOf(branch), message);
  branch.maxBitrate = -1;
  EXPECT_EQ(RefusalOf(branch), message);
}

TEST(BranchValidationTest, NamesTheBranch) {
  VideoBranchConfig branch = Branch(0, 0);
  branch.branchIndex = 2;
  EXPECT_EQ(RefusalOf(branch),
            "video branch 2 requires positive width and height");
}

TEST(BranchValidationTest, PrintsTheIndexWithoutASign) {
  VideoBranchConfig branch = Branch(0, 0);
  branch.branchIndex = -1;
  EXPECT_EQ(RefusalOf(branch),
            "video branch 4294967295 requires positive width and height");
}

TEST(BranchValidationTest, ReportsTheFirstOfSeveralFaults) {
  VideoBranchConfig branch{1, -1, 3, 0, 0, 0, 0};
  EXPECT_EQ(RefusalOf(branch),
            "video branch 1 requires positive width and height");
  branch.width = 3;
  EXPECT_EQ(RefusalOf(branch),
            "video branch 1 requires even width and height for H.264");
  branch.width = branch.height = 2;
  EXPECT_EQ(RefusalOf(branch), "video branch 1 requires positive fps");
  branch.fps = 1;
  EXPECT_EQ(RefusalOf(branch),
            "video branch 1 requires positive bitrate and maxBitrate");
}

TEST(BranchFittingTest, TakesTheAspectRatioOfTheSource) {
  EXPECT_EQ(Fitted({1280, 720}, {1000, 1000}, 1), (Size{720, 720}));
  EXPECT_EQ(Fitted({1920, 1080}, {2560, 1440}, 1), (Size{1920, 1080}));
  EXPECT_EQ(Fitted({1024, 1024}, {2048, 1024}, 1), (Size{1024, 512}));
}

TEST(BranchFittingTest, NeverUpscalesTheSource) {
  EXPECT_EQ(Fitted({1921, 1081}, {1920, 1080}, 1), (Size{1920, 1080}));
  EXPECT_EQ(Fitted({3840, 2160}, {640, 360}, 1), (Size{640, 360}));
  EXPECT_EQ(Fitted({kIntMax, kIntMax}, {640, 360}, 1), (Size{640, 360}));
}

TEST(BranchFittingTest, MakesOddResultsEven) {
  EXPECT_EQ(Fitted({2000, 2000}, {721, 721}, 1), (Size{720, 720}));
  EXPECT_EQ(Fitted({2000, 2000}, {721, 3}, 1), (Size{720, 2}));
}

TEST(BranchFittingTest, NeverDropsBelowTwoPixels) {
  EXPECT_EQ(Fitted({2, 2}, {1000, 10}, 1), (Size{2, 2}));
  EXPECT_EQ(Fitted({2000, 2000}, {1, 1}, 1), (Size{2, 2}));
  EXPECT_EQ(Fitted({2000, 2000}, {1, 1}, 4), (Size{2, 2}));
  EXPECT_EQ(Fitted({0, 0}, {640, 360}, 1), (Size{2, 2}));
  EXPECT_EQ(Fitted({kIntMin, kIntMin}, {kIntMax, kIntMax}, 1), (Size{2, 2}));
}

TEST(BranchFittingTest, FallsBackToAFractionWhenNotSmallerThanTheSource) {
  EXPECT_EQ(Fitted({1280, 720}, {1280, 720}, 2), (Size{640, 360}));
  EXPECT_EQ(Fitted({1920, 1080}, {1280, 720}, 4), (Size{320, 180}));
  EXPECT_EQ(Fitted({1920, 1080}, {1366, 768}, 4), (Size{340, 192}));
}

TEST(BranchFittingTest, FallsBackWhenOnlyOneDirectionIsSmaller) {
  // Half the lines of 2 columns: the width cannot shrink along.
  EXPECT_EQ(Fitted({200, 200}, {2, 400}, 1), (Size{2, 200}));
  EXPECT_EQ(Fitted({200, 200}, {2, 400}, 4), (Size{2, 100}));
  // Rounding takes a line away from 3, but never one from 2.
  EXPECT_EQ(Fitted({998, 3}, {1000, 3}, 2), (Size{998, 2}));
  EXPECT_EQ(Fitted({998, 2}, {1000, 2}, 2), (Size{500, 2}));
}

TEST(BranchFittingTest, KeepsASmallerSizeWhateverTheDivisor) {
  EXPECT_EQ(Fitted({960, 540}, {1280, 720}, 2), (Size{960, 540}));
  EXPECT_EQ(Fitted({960, 540}, {1280, 720}, 4), (Size{960, 540}));
}

TEST(BranchFittingTest, DoesNotDivideWithADivisorOfOneOrLess) {
  EXPECT_EQ(Fitted({1280, 720}, {1280, 720}, 1), (Size{1280, 720}));
  EXPECT_EQ(Fitted({1280, 720}, {1280, 720}, 0), (Size{1280, 720}));
  EXPECT_EQ(Fitted({1280, 720}, {1280, 720}, -2), (Size{1280, 720}));
}

TEST(BranchFittingTest, LeavesTheSizeAloneWhileTheSourceSizeIsUnknown) {
  EXPECT_EQ(Fitted({1280, 720}, {0, 720}, 2), (Size{1280, 720}));
  EXPECT_EQ(Fitted({1280, 720}, {1280, 0}, 2), (Size{1280, 720}));
  EXPECT_EQ(Fitted({1280, 720}, {-1, -1}, 2), (Size{1280, 720}));
}

TEST(BranchFittingTest, KeepsEverythingButTheSize) {
  const VideoBranchConfig branch{2, 1280, 720, 15, 11, 12, 13};
  const VideoBranchConfig expected{2, 720, 720, 15, 11, 12, 13};
  EXPECT_EQ(ScaleBranchToFitSourceAspect(branch, 1000, 1000, 1), expected);
}

TEST(BranchFittingTest, ValidatesTheResult) {
  VideoBranchConfig branch = Branch(1280, 720);
  branch.branchIndex = 1;
  branch.fps = 0;
  try {
    (void)ScaleBranchToFitSourceAspect(branch, 1920, 1080, 1);
    FAIL() << "a branch without a frame rate was accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "video branch 1 requires positive fps");
  }
}

TEST(BranchFittingTest, ValidatesASizeItLeftAlone) {
  EXPECT_THROW((void)ScaleBranchToFitSourceAspect(Branch(641, 360), 0, 0, 1),
               std::runtime_error);
}

TEST(BranchFittingTest, FitsTheLargestSizes) {
  EXPECT_EQ(Fitted({kIntMax, kIntMax}, {kIntMax, kIntMax}, 1),
            (Size{kIntMax - 1, kIntMax - 1}));
  EXPECT_EQ(Fitted({kIntMax, kIntMax}, {kIntMax, 1}, 1),
            (Size{kIntMax - 1, 2}));
  EXPECT_EQ(Fitted({kIntMax, kIntMax}, {kIntMax, kIntMax}, kIntMax),
            (Size{kIntMax - 1, kIntMax - 1}));
}

// Sizes of every order of magnitude, so that small ones come up often.
std::int32_t RandomSize(std::mt19937& random) {
  const int bits = std::uniform_int_distribution<int>(1, 31)(random);
  const auto highest = static_cast<std::int32_t>((std::int64_t{1} << bits) - 1);
  return std::uniform_int_distribution<std::int32_t>(1, highest)(random);
}

TEST(BranchFittingTest, AnySizeComesOutEvenSmallAndOfTheSourceAspect) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 20000; ++round) {
    const Size branch{RandomSize(random), RandomSize(random)};
    const Size source{RandomSize(random), RandomSize(random)};
    const std::int32_t divisor = 1 << (round % 3);
    const Size fitted = Fitted(branch, source, divisor);
    SCOPED_TRACE(testing::Message()
                 << branch << " into " << source << " divisor " << divisor
                 << ": " << fitted);
    ASSERT_EQ(fitted.width % 2, 0);
    ASSERT_EQ(fitted.height % 2, 0);
    ASSERT_GE(fitted.width, 2);
    ASSERT_GE(fitted.height, 2);
    ASSERT_LE(fitted.width, std::max(source.width, 2));
    ASSERT_LE(fitted.height, std::max(source.height, 2));
    if (divisor > 1) continue;
    ASSERT_LE(fitted.width, std::max(branch.width, 2));
    ASSERT_LE(fitted.height, std::max(branch.height, 2));
    // One of the three limits is reached, up to rounding to an even size.
    const bool fillsWidth =
        fitted.width >= std::min(branch.width, source.width) - 2;
    const bool fillsHeight =
        fitted.height >= std::min(branch.height, source.height) - 2;
    ASSERT_TRUE(fillsWidth || fillsHeight);
    // The aspect ratio is the source's within the rounding of both sides.
    const double scale =
        std::max(static_cast<double>(fitted.width) / source.width,
                 static_cast<double>(fitted.height) / source.height);
    if (fitted.width > 2 && fitted.height > 2) {
      const double slack =
          2.0 * std::max(1.0, static_cast<double>(
                                  std::max(source.width, source.height)) /
                                  std::min(source.width, source.height)) +
          1.0;
      ASSERT_NEAR(fitted.width, source.width * scale, slack);
      ASSERT_NEAR(fitted.height, source.height * scale, slack);
    }
  }
}

}  // namespace
}  // namespace linux_capture
