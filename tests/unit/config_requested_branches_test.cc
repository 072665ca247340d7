#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "config/requested_branches.h"

namespace linux_capture {
namespace {

VideoBranchConfig Secondary(std::int32_t bitrate,
                            std::int32_t captureMinBitrate) {
  return RequestedSecondaryBranch({1, 640, 360, 15, bitrate, 0, 0},
                                  captureMinBitrate);
}

template <typename Make>
std::string RefusalOf(const Make& make) {
  try {
    make();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(RequestedBranchesTest, PrimaryHasTheCaptureValues) {
  CaptureConfig config;
  config.width = 1280;
  config.height = 720;
  config.fps = 30;
  config.bitrate = 5;
  config.minBitrate = 6;
  config.maxBitrate = 7;
  EXPECT_EQ(RequestedPrimaryBranch(config),
            (VideoBranchConfig{0, 1280, 720, 30, 5, 6, 7}));
}

TEST(RequestedBranchesTest, OddPrimaryIsRefusedThoughFittingWouldMakeItEven) {
  CaptureConfig config;
  config.sourceWidth = 1920;
  config.sourceHeight = 1080;
  config.width = 1281;
  EXPECT_EQ(RefusalOf([&] { (void)RequestedPrimaryBranch(config); }),
            "video branch 0 requires even width and height for H.264");
}

TEST(RequestedBranchesTest, PrimaryWithoutABitrateIsRefused) {
  CaptureConfig config;
  config.bitrate = 0;
  EXPECT_EQ(RefusalOf([&] { (void)RequestedPrimaryBranch(config); }),
            "video branch 0 requires positive bitrate and maxBitrate");
}

TEST(RequestedBranchesTest, SecondaryMaximumIsItsBitrate) {
  EXPECT_EQ(Secondary(900000, 1000).maxBitrate, 900000);
}

TEST(RequestedBranchesTest, SecondaryMinimumIsTheCaptures) {
  EXPECT_EQ(Secondary(900000, 1000).minBitrate, 1000);
}

TEST(RequestedBranchesTest, SecondaryMinimumIsAtMostItsBitrate) {
  EXPECT_EQ(Secondary(900000, 1000000).minBitrate, 900000);
}

TEST(RequestedBranchesTest, SecondaryMinimumIsAtLeastOne) {
  EXPECT_EQ(Secondary(900000, 0).minBitrate, 1);
  EXPECT_EQ(
      Secondary(900000, std::numeric_limits<std::int32_t>::min()).minBitrate,
      1);
}

TEST(RequestedBranchesTest, SecondaryKeepsWhatWasGiven) {
  EXPECT_EQ(RequestedSecondaryBranch({2, 320, 180, 7, 300000, -1, -1}, 200000),
            (VideoBranchConfig{2, 320, 180, 7, 300000, 200000, 300000}));
}

TEST(RequestedBranchesTest, SecondaryWithoutABitrateIsRefusedByItsIndex) {
  EXPECT_EQ(RefusalOf([] { (void)Secondary(0, 1000); }),
            "video branch 1 requires positive bitrate and maxBitrate");
}

}  // namespace
}  // namespace linux_capture
