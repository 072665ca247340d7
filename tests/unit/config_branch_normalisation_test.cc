#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "config/branch_normalisation.h"

namespace linux_capture {
namespace {

using Branches = std::vector<VideoBranchConfig>;

struct Request {
  std::int32_t sourceWidth;
  std::int32_t sourceHeight;
  Branches branches;
};

// A record as the parser leaves it before its branches meet the source.
CaptureConfig ConfigOf(const Request& request) {
  CaptureConfig config;
  config.sourceWidth = request.sourceWidth;
  config.sourceHeight = request.sourceHeight;
  config.branches = request.branches;
  const VideoBranchConfig& primary = request.branches.front();
  config.width = primary.width;
  config.height = primary.height;
  config.fps = primary.fps;
  config.bitrate = primary.bitrate;
  config.minBitrate = primary.minBitrate;
  config.maxBitrate = primary.maxBitrate;
  return config;
}

VideoBranchConfig Primary(std::int32_t width, std::int32_t height,
                          std::int32_t fps) {
  return {0, width, height, fps, 8000000, 1000000, 16000000};
}

VideoBranchConfig Secondary(std::int32_t index, std::int32_t width,
                            std::int32_t height, std::int32_t fps) {
  return {index, width, height, fps, 900000, 800000, 900000};
}

Branches Normalised(const Request& request) {
  CaptureConfig config = ConfigOf(request);
  NormaliseBranchesToSource(config);
  return config.branches;
}

TEST(BranchNormalisationTest, SecondaryWithThePrimarysFrameRateIsDropped) {
  EXPECT_EQ(
      Normalised(
          {1920, 1080, {Primary(1280, 720, 30), Secondary(1, 640, 360, 30)}}),
      (Branches{Primary(1280, 720, 30)}));
}

TEST(BranchNormalisationTest, SmallerAndSlowerSecondaryIsKept) {
  const Branches branches = {Primary(1280, 720, 30),
                             Secondary(1, 640, 360, 15)};
  EXPECT_EQ(Normalised({1920, 1080, branches}), branches);
}

TEST(BranchNormalisationTest, ThreeFallingBranchesAreKept) {
  const Branches branches = {Primary(1280, 720, 30), Secondary(1, 640, 360, 15),
                             Secondary(2, 320, 180, 7)};
  EXPECT_EQ(Normalised({1920, 1080, branches}), branches);
}

TEST(BranchNormalisationTest, RecordTakesTheFittedPrimarysSize) {
  CaptureConfig config = ConfigOf({1000, 1000, {Primary(1280, 720, 30)}});
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config.width, 720);
  EXPECT_EQ(config.height, 720);
  EXPECT_EQ(config.branches, (Branches{Primary(720, 720, 30)}));
}

TEST(BranchNormalisationTest, StreamLargerThanThePrimaryKeepsItsSize) {
  CaptureConfig config = ConfigOf({2560, 1440, {Primary(1920, 1080, 30)}});
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config.width, 1920);
  EXPECT_EQ(config.height, 1080);
}

TEST(BranchNormalisationTest, UnknownSourceSizeChangesNothing) {
  for (const char* requirement : {"allow-degraded", "hardware"}) {
    CaptureConfig config =
        ConfigOf({0, 0, {Primary(1280, 720, 30), Secondary(1, 1280, 720, 30)}});
    config.encoderRequirement = requirement;
    const CaptureConfig before = config;
    NormaliseBranchesToSource(config);
    EXPECT_EQ(config, before) << requirement;
    config.sourceWidth = 1920;
    NormaliseBranchesToSource(config);
    EXPECT_EQ(config.branches, before.branches) << requirement;
  }
}

TEST(BranchNormalisationTest, SecondariesAreFittedIntoTheFittedPrimary) {
  // The primary becomes 720x720, the secondary square along with it.
  EXPECT_EQ(
      Normalised(
          {1000, 1000, {Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}}),
      (Branches{Primary(720, 720, 30), Secondary(1, 360, 360, 15)}));
}

TEST(BranchNormalisationTest, TooLargeFirstSecondaryBecomesHalfThePrimary) {
  EXPECT_EQ(
      Normalised(
          {1920, 1080, {Primary(1280, 720, 30), Secondary(1, 1280, 720, 15)}}),
      (Branches{Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}));
}

TEST(BranchNormalisationTest, TooLargeSecondSecondaryBecomesAQuarter) {
  EXPECT_EQ(Normalised({1920,
                        1080,
                        {Primary(1280, 720, 30), Secondary(1, 960, 540, 15),
                         Secondary(2, 1920, 1080, 7)}}),
            (Branches{Primary(1280, 720, 30), Secondary(1, 960, 540, 15),
                      Secondary(2, 320, 180, 7)}));
}

TEST(BranchNormalisationTest, SecondSecondaryKeepsItsIndexWhenTheFirstIsGone) {
  EXPECT_EQ(Normalised({1920,
                        1080,
                        {Primary(1280, 720, 30), Secondary(1, 640, 360, 30),
                         Secondary(2, 320, 180, 15)}}),
            (Branches{Primary(1280, 720, 30), Secondary(2, 320, 180, 15)}));
}

TEST(BranchNormalisationTest, BranchesAreNumberedByPosition) {
  EXPECT_EQ(Normalised({1920,
                        1080,
                        {{7, 1280, 720, 30, 8000000, 1000000, 16000000},
                         Secondary(9, 640, 360, 15),
                         Secondary(9, 320, 180, 7)}}),
            (Branches{Primary(1280, 720, 30), Secondary(1, 640, 360, 15),
                      Secondary(2, 320, 180, 7)}));
}

TEST(BranchNormalisationTest, SecondariesAreComparedWithTheLastKeptBranch) {
  // Smaller than the primary, but not smaller than the first secondary.
  EXPECT_EQ(Normalised({1920,
                        1080,
                        {Primary(1280, 720, 30), Secondary(1, 320, 180, 15),
                         Secondary(2, 640, 360, 7)}}),
            (Branches{Primary(1280, 720, 30), Secondary(1, 320, 180, 15)}));
  // Smaller, but as fast as the first secondary.
  EXPECT_EQ(Normalised({1920,
                        1080,
                        {Primary(1280, 720, 30), Secondary(1, 640, 360, 15),
                         Secondary(2, 320, 180, 15)}}),
            (Branches{Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}));
}

TEST(BranchNormalisationTest, SecondaryMustShrinkInBothDirections) {
  // 2 columns cannot shrink any further.
  EXPECT_EQ(Normalised(
                {2, 1000, {Primary(100, 500, 30), Secondary(1, 100, 100, 15)}}),
            (Branches{Primary(2, 500, 30)}));
}

TEST(BranchNormalisationTest, SoftwareBranchesKeepTheirRates) {
  CaptureConfig config = ConfigOf(
      {1280, 720, {Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}});
  config.encoderRequirement = "allow-degraded";
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config.bitrate, 8000000);
  EXPECT_EQ(config.minBitrate, 1000000);
  EXPECT_EQ(config.maxBitrate, 16000000);
  EXPECT_EQ(config.branches[1], Secondary(1, 640, 360, 15));
}

TEST(BranchNormalisationTest, HardwareBranchesGetTheLadder) {
  CaptureConfig config = ConfigOf(
      {1280, 720, {Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}});
  config.encoderRequirement = "hardware";
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config.branches,
            (Branches{Primary(1280, 720, 30),
                      {1, 640, 360, 15, 1681793, 100000, 3363586}}));
}

TEST(BranchNormalisationTest, HardwareRecordTakesTheLaddersPrimaryRates) {
  CaptureConfig config = ConfigOf({1280, 720, {Primary(1280, 720, 30)}});
  config.encoderRequirement = "hardware";
  config.branches[0].maxBitrate = config.maxBitrate = 50000;
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config.bitrate, 100000);
  EXPECT_EQ(config.minBitrate, 100000);
  EXPECT_EQ(config.maxBitrate, 100000);
}

TEST(BranchNormalisationTest,
     LadderReferenceIsChosenAmongTheRequestedBranches) {
  // The source is so small that the secondary as requested covers the fitted
  // primary and has the rates the host meant for that size.
  CaptureConfig config = ConfigOf(
      {600, 300, {Primary(1280, 720, 30), Secondary(1, 640, 360, 15)}});
  config.encoderRequirement = "hardware";
  NormaliseBranchesToSource(config);
  ASSERT_EQ(config.branches.size(), 2u);
  EXPECT_EQ(config.branches[0],
            (VideoBranchConfig{0, 600, 300, 30, 900000, 800000, 900000}));
  EXPECT_EQ(config.bitrate, 900000);
  EXPECT_EQ(config.minBitrate, 800000);
  EXPECT_EQ(config.maxBitrate, 900000);
  EXPECT_EQ(config.branches[1].width, 300);
  EXPECT_EQ(config.branches[1].height, 150);
}

TEST(BranchNormalisationTest, RecordWithoutBranchesIsLeftAlone) {
  CaptureConfig config;
  config.sourceWidth = 1920;
  config.sourceHeight = 1080;
  const CaptureConfig before = config;
  NormaliseBranchesToSource(config);
  EXPECT_EQ(config, before);
}

TEST(BranchNormalisationTest, RefusedBranchLeavesTheRecordUntouched) {
  CaptureConfig config = ConfigOf({1920, 1080, {Primary(1280, 720, 0)}});
  const CaptureConfig before = config;
  EXPECT_THROW(NormaliseBranchesToSource(config), std::runtime_error);
  EXPECT_EQ(config, before);
}

TEST(BranchNormalisationTest, AnyRequestGivesStrictlyFallingEvenBranches) {
  std::mt19937 random(99);
  const auto pick = [&random](std::int32_t lowest, std::int32_t highest) {
    return std::uniform_int_distribution<std::int32_t>(lowest, highest)(random);
  };
  int keptSecondaries = 0;
  for (int round = 0; round < 10000; ++round) {
    Request request{pick(1, 4000), pick(1, 4000), {}};
    const int count = pick(1, 3);
    for (std::int32_t i = 0; i < count; ++i) {
      request.branches.push_back({i, 2 * pick(1, 2000), 2 * pick(1, 2000),
                                  pick(1, 60), pick(1, 20000000),
                                  pick(0, 20000000), pick(1, 20000000)});
    }
    CaptureConfig config = ConfigOf(request);
    if (round % 2 == 0) config.encoderRequirement = "hardware";
    NormaliseBranchesToSource(config);
    SCOPED_TRACE(testing::Message() << "round " << round);
    ASSERT_FALSE(config.branches.empty());
    const VideoBranchConfig& primary = config.branches.front();
    ASSERT_EQ(primary.branchIndex, 0);
    ASSERT_EQ(primary.width, config.width);
    ASSERT_EQ(primary.height, config.height);
    ASSERT_EQ(primary.fps, config.fps);
    ASSERT_EQ(primary.bitrate, config.bitrate);
    ASSERT_EQ(primary.minBitrate, config.minBitrate);
    ASSERT_EQ(primary.maxBitrate, config.maxBitrate);
    for (std::size_t i = 0; i < config.branches.size(); ++i) {
      const VideoBranchConfig& branch = config.branches[i];
      ASSERT_EQ(branch.width % 2, 0);
      ASSERT_EQ(branch.height % 2, 0);
      ASSERT_GE(branch.width, 2);
      ASSERT_GE(branch.height, 2);
      ASSERT_GE(branch.bitrate, 1);
      ASSERT_GE(branch.maxBitrate, 1);
      if (i == 0) continue;
      ++keptSecondaries;
      const VideoBranchConfig& previous = config.branches[i - 1];
      ASSERT_GT(branch.branchIndex, previous.branchIndex);
      ASSERT_LT(branch.width, previous.width);
      ASSERT_LT(branch.height, previous.height);
      ASSERT_LT(branch.fps, previous.fps);
    }
  }
  // The property must not hold merely because nothing was ever kept.
  EXPECT_GT(keptSecondaries, 1000);
}

}  // namespace
}  // namespace linux_capture
