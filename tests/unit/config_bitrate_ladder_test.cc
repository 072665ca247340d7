#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

#include "config/bitrate_ladder.h"

namespace linux_capture {
namespace {

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();

using Branches = std::vector<VideoBranchConfig>;

struct Rates {
  std::int32_t bitrate;
  std::int32_t minBitrate;
  std::int32_t maxBitrate;
  friend bool operator==(const Rates&, const Rates&) = default;
};

std::ostream& operator<<(std::ostream& out, const Rates& rates) {
  return out << rates.bitrate << " in " << rates.minBitrate << ".."
             << rates.maxBitrate;
}

Rates RatesOf(const VideoBranchConfig& branch) {
  return {branch.bitrate, branch.minBitrate, branch.maxBitrate};
}

// What the primary gets when it alone was requested with these rates.
Rates PrimaryRates(const Rates& requested) {
  const Branches parsed = {{0, 1280, 720, 30, requested.bitrate,
                            requested.minBitrate, requested.maxBitrate}};
  Branches fitted = parsed;
  ApplyHardwareBitrateLadder(parsed, fitted);
  return RatesOf(fitted[0]);
}

TEST(BitrateLadderTest, PrimaryKeepsRatesWithinTheCap) {
  EXPECT_EQ(PrimaryRates({8000000, 1000000, 16000000}),
            (Rates{8000000, 1000000, 16000000}));
}

TEST(BitrateLadderTest, PrimaryIsHeldToItsCap) {
  EXPECT_EQ(PrimaryRates({8000000, 1000000, 2000000}),
            (Rates{2000000, 1000000, 2000000}));
  EXPECT_EQ(PrimaryRates({8000000, 3000000, 2000000}),
            (Rates{2000000, 2000000, 2000000}));
}

TEST(BitrateLadderTest, CapIsRaisedToTheFloor) {
  EXPECT_EQ(PrimaryRates({8000000, 1000000, 50000}),
            (Rates{100000, 100000, 100000}));
  EXPECT_EQ(PrimaryRates({40000, 1000, 50000}), (Rates{100000, 1000, 100000}));
}

TEST(BitrateLadderTest, TargetIsRaisedToTheFloor) {
  EXPECT_EQ(PrimaryRates({1, 1, 400000}), (Rates{100000, 1, 400000}));
}

TEST(BitrateLadderTest, MissingTargetIsTheCap) {
  EXPECT_EQ(PrimaryRates({0, 200000, 400000}), (Rates{400000, 200000, 400000}));
  EXPECT_EQ(PrimaryRates({-5, 200000, 400000}),
            (Rates{400000, 200000, 400000}));
}

TEST(BitrateLadderTest, MissingCapIsTheTarget) {
  EXPECT_EQ(PrimaryRates({300000, 200000, 0}), (Rates{300000, 200000, 300000}));
  EXPECT_EQ(PrimaryRates({300000, 200000, -1}),
            (Rates{300000, 200000, 300000}));
  EXPECT_EQ(PrimaryRates({0, 0, 0}), (Rates{100000, 100000, 100000}));
}

TEST(BitrateLadderTest, PrimaryWithoutAMinimumGetsTheFloor) {
  EXPECT_EQ(PrimaryRates({8000000, 0, 16000000}),
            (Rates{8000000, 100000, 16000000}));
  EXPECT_EQ(PrimaryRates({8000000, -7, 16000000}),
            (Rates{8000000, 100000, 16000000}));
}

TEST(BitrateLadderTest, PrimaryMinimumMayLieBelowTheFloor) {
  EXPECT_EQ(PrimaryRates({8000000, 1, 16000000}),
            (Rates{8000000, 1, 16000000}));
}

TEST(BitrateLadderTest, SecondariesGetASubLinearShareOfThePixelRate) {
  // 1/8 and 7/480 of the primary's pixels per second, to the power 3/4.
  const Branches parsed = {{0, 1280, 720, 30, 8000000, 1000000, 16000000},
                           {1, 640, 360, 15, 900000, 900000, 900000},
                           {2, 320, 180, 7, 300000, 300000, 300000}};
  Branches fitted = parsed;
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{8000000, 1000000, 16000000}));
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{1681793, 100000, 3363586}));
  EXPECT_EQ(RatesOf(fitted[2]), (Rates{335724, 100000, 671448}));
}

TEST(BitrateLadderTest, SecondariesShareATargetThatIsHeldToTheCap) {
  // An eighth of the pixel rate gets 0.2102 of 1,000,000, not of 8,000,000.
  const Branches parsed = {{0, 1280, 720, 30, 8000000, 0, 1000000}};
  Branches fitted = {parsed[0], {1, 640, 360, 15, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{210224, 100000, 210224}));
}

TEST(BitrateLadderTest, SecondariesNeverGetLessThanTheFloor) {
  // The shares would be 84,090 of the target and 105,112 of the cap.
  const Branches parsed = {{0, 1280, 720, 30, 400000, 0, 500000}};
  Branches fitted = {parsed[0], {1, 640, 360, 15, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{100000, 100000, 105112}));
}

TEST(BitrateLadderTest, SecondaryMaximumIsNeverBelowItsBitrate) {
  const Branches parsed = {{0, 1280, 720, 30, 150000, 0, 200000}};
  Branches fitted = {parsed[0], {1, 640, 360, 15, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{100000, 100000, 100000}));
}

TEST(BitrateLadderTest, BranchAsBusyAsThePrimaryGetsItsFullRates) {
  const Branches parsed = {{0, 640, 360, 15, 400000, 50000, 500000}};
  // Fewer pixels, but more pixels per second.
  Branches fitted = {parsed[0], {1, 320, 180, 60, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{400000, 100000, 500000}));
}

TEST(BitrateLadderTest, RatesComeFromTheNearestBranchThatCoversThePrimary) {
  const Branches parsed = {{0, 1920, 1080, 30, 8000000, 1000000, 16000000},
                           {1, 960, 540, 15, 3000000, 500000, 4000000},
                           {2, 480, 270, 7, 700000, 100000, 700000}};
  Branches fitted = {{0, 900, 500, 30, 0, 0, 0}, {1, 450, 250, 15, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{3000000, 500000, 4000000}));
  EXPECT_EQ(RatesOf(fitted[1]), (Rates{630672, 100000, 840896}));
}

TEST(BitrateLadderTest, BranchAsLargeAsThePrimaryCoversIt) {
  const Branches parsed = {{0, 1920, 1080, 30, 8000000, 1, 16000000},
                           {1, 960, 540, 15, 3000000, 2, 4000000}};
  Branches fitted = {{0, 960, 540, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{3000000, 2, 4000000}));
}

TEST(BitrateLadderTest, BranchMustCoverBothDirections) {
  const Branches parsed = {{0, 1920, 1080, 30, 8000000, 1, 16000000},
                           {1, 1000, 400, 15, 3000000, 2, 4000000},
                           {2, 400, 1000, 15, 3000000, 3, 4000000}};
  Branches fitted = {{0, 960, 540, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{8000000, 1, 16000000}));
}

TEST(BitrateLadderTest, EqualAreasAreDecidedByTheSmallerFrameRate) {
  const Branches parsed = {{0, 800, 400, 30, 8000000, 1, 9000000},
                           {1, 400, 800, 15, 3000000, 2, 9500000}};
  Branches fitted = {{0, 400, 400, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{3000000, 2, 9500000}));
}

TEST(BitrateLadderTest, EqualFrameRatesAreDecidedByTheSmallerMaximum) {
  const Branches parsed = {{0, 800, 400, 30, 8000000, 1, 9000000},
                           {1, 400, 800, 30, 8500000, 2, 8900000}};
  Branches fitted = {{0, 400, 400, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{8500000, 2, 8900000}));
}

TEST(BitrateLadderTest, FullTieTakesTheFirstBranch) {
  const Branches parsed = {{0, 800, 400, 30, 8000000, 3, 9000000},
                           {1, 400, 800, 30, 1000000, 2, 9000000},
                           {2, 800, 400, 30, 1000000, 1, 9000000}};
  Branches fitted = {{0, 400, 400, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{8000000, 3, 9000000}));
}

TEST(BitrateLadderTest, WithoutACoveringBranchTheRequestedPrimaryDecides) {
  const Branches parsed = {{0, 320, 180, 30, 8000000, 3, 9000000},
                           {1, 160, 90, 15, 1000000, 2, 2000000}};
  Branches fitted = {{0, 640, 360, 30, 0, 0, 0}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{8000000, 3, 9000000}));
}

TEST(BitrateLadderTest, TouchesNothingButTheRates) {
  const Branches parsed = {{0, 1280, 720, 30, 8000000, 1000000, 16000000}};
  Branches fitted = {{0, 1278, 718, 29, 1, 1, 1}, {2, 320, 180, 7, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  ASSERT_EQ(fitted.size(), 2u);
  EXPECT_EQ(fitted[0].branchIndex, 0);
  EXPECT_EQ(fitted[0].width, 1278);
  EXPECT_EQ(fitted[0].height, 718);
  EXPECT_EQ(fitted[0].fps, 29);
  EXPECT_EQ(fitted[1].branchIndex, 2);
  EXPECT_EQ(fitted[1].width, 320);
  EXPECT_EQ(fitted[1].height, 180);
  EXPECT_EQ(fitted[1].fps, 7);
}

TEST(BitrateLadderTest, EmptyListsAreLeftAlone) {
  Branches none;
  ApplyHardwareBitrateLadder({{0, 2, 2, 1, 1, 1, 1}}, none);
  EXPECT_TRUE(none.empty());
  Branches one = {{0, 2, 2, 1, 5, 6, 7}};
  ApplyHardwareBitrateLadder({}, one);
  EXPECT_EQ(RatesOf(one[0]), (Rates{5, 6, 7}));
}

TEST(BitrateLadderTest, HoldsForTheLargestValues) {
  const Branches parsed = {
      {0, kIntMax, kIntMax, kIntMax, kIntMax, kIntMax, kIntMax}};
  Branches fitted = {parsed[0],
                     {1, kIntMax - 1, kIntMax, kIntMax, 1, 1, 1},
                     {2, 1, 1, 1, 1, 1, 1}};
  ApplyHardwareBitrateLadder(parsed, fitted);
  EXPECT_EQ(RatesOf(fitted[0]), (Rates{kIntMax, kIntMax, kIntMax}));
  EXPECT_GE(fitted[1].bitrate, kIntMax - 2);
  EXPECT_EQ(RatesOf(fitted[2]), (Rates{100000, 100000, 100000}));
}

TEST(BitrateLadderTest, AnyRequestStaysBetweenFloorAndCap) {
  std::mt19937 random(4711);
  const auto pick = [&random](std::int32_t lowest, std::int32_t highest) {
    return std::uniform_int_distribution<std::int32_t>(lowest, highest)(random);
  };
  const auto pickBranch = [&pick](std::size_t index) {
    // Both the full range and one around the floor.
    const std::int32_t rate = pick(0, 1) == 0 ? kIntMax : 300000;
    return VideoBranchConfig{static_cast<std::int32_t>(index),
                             pick(2, 4000),
                             pick(2, 4000),
                             pick(1, 240),
                             pick(-10, rate),
                             pick(-10, rate),
                             pick(-10, rate)};
  };
  for (int round = 0; round < 20000; ++round) {
    Branches parsed;
    Branches fitted;
    const int count = pick(1, 3);
    for (int i = 0; i < count; ++i) {
      parsed.push_back(pickBranch(parsed.size()));
      fitted.push_back(pickBranch(fitted.size()));
    }
    ApplyHardwareBitrateLadder(parsed, fitted);
    const std::int32_t cap = fitted[0].maxBitrate;
    for (std::size_t i = 0; i < fitted.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "round " << round << " branch " << i);
      ASSERT_GE(fitted[i].bitrate, 100000);
      ASSERT_LE(fitted[i].bitrate, cap);
      ASSERT_GE(fitted[i].maxBitrate, fitted[i].bitrate);
      ASSERT_LE(fitted[i].maxBitrate, cap);
      ASSERT_LE(fitted[i].bitrate, fitted[0].bitrate);
      if (i == 0) {
        ASSERT_GE(fitted[i].minBitrate, 1);
        ASSERT_LE(fitted[i].minBitrate, cap);
      } else {
        ASSERT_EQ(fitted[i].minBitrate, 100000);
      }
    }
  }
}

}  // namespace
}  // namespace linux_capture
