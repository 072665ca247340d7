#include "video_hardware/bitrate_allocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace linux_capture {
namespace {

using Shares = std::vector<std::uint32_t>;

TEST(BitrateAllocationTest, RequestsAreClampedToTheAcceptedRange) {
  EXPECT_EQ(ClampRequestedBitrate(50'000), 100'000U);
  EXPECT_EQ(ClampRequestedBitrate(99'999.999), 100'000U);
  EXPECT_EQ(ClampRequestedBitrate(100'000), 100'000U);
  EXPECT_EQ(ClampRequestedBitrate(300'000'000), 300'000'000U);
  EXPECT_EQ(ClampRequestedBitrate(300'000'000.5), 300'000'000U);
  EXPECT_EQ(ClampRequestedBitrate(1e12), 300'000'000U);
  EXPECT_EQ(ClampRequestedBitrate(-1), 100'000U);
}

TEST(BitrateAllocationTest, RequestsWithinTheRangeAreTruncated) {
  EXPECT_EQ(ClampRequestedBitrate(2'500'000.9), 2'500'000U);
  EXPECT_EQ(ClampRequestedBitrate(299'999'999.9), 299'999'999U);
}

TEST(BitrateAllocationTest, ValuesThatAreNoNumbersAreClampedLikeAnyOther) {
  EXPECT_EQ(ClampRequestedBitrate(std::numeric_limits<double>::quiet_NaN()),
            100'000U);
  EXPECT_EQ(ClampRequestedBitrate(std::numeric_limits<double>::infinity()),
            300'000'000U);
  EXPECT_EQ(ClampRequestedBitrate(-std::numeric_limits<double>::infinity()),
            100'000U);
}

struct RangeCase {
  std::int32_t configured;
  std::uint32_t floor;
  std::uint32_t ceiling;
};

class BitrateRangeTest : public ::testing::TestWithParam<RangeCase> {};

TEST_P(BitrateRangeTest, AFiftiethIsTheFloorAndTheConfiguredRateTheCeiling) {
  const BitrateRange range = BitrateRangeOf(GetParam().configured);
  EXPECT_EQ(range.floor, GetParam().floor);
  EXPECT_EQ(range.ceiling, GetParam().ceiling);
}

INSTANTIATE_TEST_SUITE_P(
    Configured, BitrateRangeTest,
    ::testing::Values(RangeCase{10'000'000, 200'000, 10'000'000},
                      RangeCase{4'000'000, 100'000, 4'000'000},
                      RangeCase{5'000'000, 100'000, 5'000'000},
                      RangeCase{5'000'049, 100'000, 5'000'049},
                      RangeCase{5'000'050, 100'001, 5'000'050},
                      RangeCase{100'000, 100'000, 100'000},
                      RangeCase{99'999, 100'000, 100'000},
                      RangeCase{1, 100'000, 100'000},
                      RangeCase{0, 100'000, 100'000},
                      RangeCase{-5, 100'000, 100'000},
                      RangeCase{std::numeric_limits<std::int32_t>::max(),
                                42'949'672, 2'147'483'647}));

TEST(BitrateAllocationTest, ExtraIsSharedInProportionToTheHeadroom) {
  // The division leaves 2, which go to the first branch.
  EXPECT_EQ(AllocateBitrate({4'000'000, 1'500'000, 500'000}, 3'000'000),
            (Shares{1'947'370, 763'157, 289'473}));
}

TEST(BitrateAllocationTest, ATooLowTotalGivesEveryBranchItsFloor) {
  EXPECT_EQ(AllocateBitrate({10'000'000, 1'500'000, 500'000}, 100'000),
            (Shares{200'000, 100'000, 100'000}));
  EXPECT_EQ(AllocateBitrate({10'000'000, 1'500'000, 500'000}, 400'000),
            (Shares{200'000, 100'000, 100'000}));
}

TEST(BitrateAllocationTest, ATooHighTotalGivesEveryBranchItsConfiguredRate) {
  EXPECT_EQ(AllocateBitrate({4'000'000, 1'500'000, 500'000}, 300'000'000),
            (Shares{4'000'000, 1'500'000, 500'000}));
  EXPECT_EQ(AllocateBitrate({4'000'000, 1'500'000, 500'000}, 6'000'000),
            (Shares{4'000'000, 1'500'000, 500'000}));
}

TEST(BitrateAllocationTest, BranchesWithoutHeadroomStayAtTheirFloor) {
  EXPECT_EQ(AllocateBitrate({50'000, 1'100'000, 100'000}, 700'000),
            (Shares{100'000, 500'000, 100'000}));
  EXPECT_EQ(AllocateBitrate({50'000, 60'000}, 5'000'000),
            (Shares{100'000, 100'000}));
}

TEST(BitrateAllocationTest, TheRemainderSkipsBranchesThatAreFull) {
  // Headrooms 1, 1 and 1 with 2 to share: every share rounds down to 0.
  EXPECT_EQ(AllocateBitrate({100'001, 100'001, 100'001}, 300'002),
            (Shares{100'001, 100'001, 100'000}));
  EXPECT_EQ(AllocateBitrate({100'000, 100'001, 100'001}, 300'001),
            (Shares{100'000, 100'001, 100'000}));
}

TEST(BitrateAllocationTest, WithoutBranchesNothingIsAllocated) {
  EXPECT_EQ(AllocateBitrate({}, 1'000'000), Shares{});
}

TEST(BitrateAllocationTest, TheHighestRatesDoNotOverflow) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  const Shares shares = AllocateBitrate({kMost, kMost, kMost}, 300'000'000);
  // Floors of 42,949,672 leave 171,150,984, a third for each.
  EXPECT_EQ(shares, (Shares{100'000'000, 100'000'000, 100'000'000}));
}

TEST(BitrateAllocationTest, SharesKeepTheirRangeAndAddUpForAnyBranches) {
  std::mt19937 random(20240607);
  std::uniform_int_distribution<std::int32_t> anyRate(-1000, 60'000'000);
  std::uniform_int_distribution<std::int32_t> lowRate(1, 110'000);
  std::uniform_int_distribution<std::uint32_t> anyRequest(kMinRequestedBitrate,
                                                          200'000'000);
  std::uniform_int_distribution<std::size_t> anyCount(1, 3);
  for (int round = 0; round < 20'000; ++round) {
    std::vector<std::int32_t> configured(anyCount(random));
    for (auto& rate : configured) {
      rate = round % 3 == 0 ? lowRate(random) : anyRate(random);
    }
    const std::uint32_t request =
        round % 3 == 0 ? kMinRequestedBitrate + anyRequest(random) % 300'000
                       : anyRequest(random);
    const Shares shares = AllocateBitrate(configured, request);
    ASSERT_EQ(shares.size(), configured.size());
    std::uint64_t floors = 0;
    std::uint64_t ceilings = 0;
    for (std::size_t i = 0; i < shares.size(); ++i) {
      const std::int64_t b = configured[i];
      const std::int64_t ceiling = std::max<std::int64_t>(b, 100'000);
      const std::int64_t floor =
          b < 100'000 ? 100'000 : std::max<std::int64_t>(100'000, b / 50);
      ASSERT_GE(shares[i], floor) << "round " << round;
      ASSERT_LE(shares[i], ceiling) << "round " << round;
      floors += static_cast<std::uint64_t>(floor);
      ceilings += static_cast<std::uint64_t>(ceiling);
    }
    const std::uint64_t sum =
        std::accumulate(shares.begin(), shares.end(), std::uint64_t{0});
    ASSERT_EQ(sum, std::clamp<std::uint64_t>(request, floors, ceilings))
        << "round " << round;
  }
}

}  // namespace
}  // namespace linux_capture
