#include "delivery/nal_scan.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace linux_capture {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool HasIdr(const Bytes& bytes) {
  return ContainsIdrNal(bytes.data(), bytes.size());
}

TemporalIdScan Scan(const Bytes& bytes) {
  return ScanTemporalId(bytes.data(), bytes.size());
}

TEST(IdrScanTest, AShortStartCodeAtTheVeryStartIsFound) {
  EXPECT_TRUE(HasIdr({0, 0, 1, 0x65, 0x88, 0x84}));
}

TEST(IdrScanTest, ALongStartCodeAtTheVeryStartIsFound) {
  EXPECT_TRUE(HasIdr({0, 0, 0, 1, 0x65, 0x88}));
}

TEST(IdrScanTest, FewerThanSixBytesHoldNoIdr) {
  EXPECT_FALSE(HasIdr({}));
  EXPECT_FALSE(HasIdr({0, 0, 1, 0x65, 0x88}));
  EXPECT_FALSE(HasIdr({0, 0, 0, 1, 0x65}));
  EXPECT_FALSE(ContainsIdrNal(nullptr, 0));
}

TEST(IdrScanTest, OnlyTheTypeBitsOfTheHeaderDecide) {
  for (const int header : {0x05, 0x25, 0x45, 0x65, 0x85, 0xe5}) {
    EXPECT_TRUE(HasIdr({0, 0, 1, static_cast<std::uint8_t>(header), 0, 9}))
        << header;
  }
  for (const int header : {0x41, 0x67, 0x68, 0x06, 0x64, 0x0e, 0x75}) {
    EXPECT_FALSE(HasIdr({0, 0, 1, static_cast<std::uint8_t>(header), 9, 9}))
        << header;
  }
}

TEST(IdrScanTest, AnIdrBehindParameterSetsIsFound) {
  EXPECT_TRUE(HasIdr({0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xce, 0, 0, 0,
                      1, 0x65, 0x88}));
  EXPECT_TRUE(HasIdr({0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x65, 0x88, 0x84}));
}

TEST(IdrScanTest, TheLastPositionLookedAtIsTwoBeforeTheEnd) {
  // The header of a long start code is at the position itself.
  EXPECT_TRUE(HasIdr({9, 0, 0, 0, 1, 0x65, 0x88}));
  EXPECT_FALSE(HasIdr({9, 9, 0, 0, 0, 1, 0x65}));
  // That of a short one is a byte earlier.
  EXPECT_TRUE(HasIdr({9, 9, 0, 0, 1, 0x65, 0x88, 0x84}));
  EXPECT_FALSE(HasIdr({9, 9, 0, 0, 1, 0x65, 0x88}));
}

TEST(IdrScanTest, ADeltaPictureHoldsNoIdr) {
  EXPECT_FALSE(HasIdr({0, 0, 0, 1, 0x41, 0x65, 0x65, 0x65, 0x65}));
  EXPECT_FALSE(HasIdr({0, 1, 0x65, 0x65, 0, 2, 0x65, 0x65}));
}

TEST(IdrScanTest, AnyBytesAreScannedWithinTheirBounds) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> anyByte(0, 7);
  for (int round = 0; round < 20'000; ++round) {
    // A copy without slack, so that a sanitizer sees a byte too far.
    Bytes bytes(static_cast<std::size_t>(round % 24));
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(anyByte(random));
    bytes.shrink_to_fit();
    HasIdr(bytes);
    const TemporalIdScan scan = Scan(bytes);
    ASSERT_GE(scan.temporalId, -1);
    ASSERT_LE(scan.temporalId, 7);
  }
}

TEST(TemporalIdScanTest, APrefixNalIsRead) {
  // Bits taken: the lowest of the second and the two highest of the third.
  const TemporalIdScan scan =
      Scan({0, 0, 0, 1, 0x6e, 0xc0, 0x01, 0xc0, 0, 0, 0, 1, 0x65});
  EXPECT_EQ(scan.temporalId, 7);
  EXPECT_EQ(std::string(scan.source), "h264-prefix-nal-temporal-id");
  EXPECT_EQ(Scan({0, 0, 0, 1, 0x6e, 0xff, 0xfe, 0x7f, 0}).temporalId, 1);
  EXPECT_EQ(Scan({0, 0, 0, 1, 0x6e, 0xff, 0xff, 0x3f, 0}).temporalId, 4);
}

TEST(TemporalIdScanTest, ASliceExtensionIsRead) {
  const TemporalIdScan scan =
      Scan({0, 0, 0, 1, 0x41, 0x9a, 0, 0, 1, 0x74, 0x80, 0x00, 0x80, 0x00});
  EXPECT_EQ(scan.temporalId, 2);
  EXPECT_EQ(std::string(scan.source), "h264-svc-slice-extension-temporal-id");
}

TEST(TemporalIdScanTest, TheFirstOneCounts) {
  EXPECT_EQ(Scan({0, 0, 0, 1, 0x6e, 0, 0, 0x40, 0, 0, 1, 0x6e, 0, 0, 0xc0, 0})
                .temporalId,
            1);
}

TEST(TemporalIdScanTest, WithoutOneTheIdIsMissing) {
  for (const Bytes& bytes : {Bytes{}, Bytes{0, 0, 0, 1, 0x6e, 0, 0},
                             Bytes{0, 0, 0, 1, 0x65, 0x88, 0x84, 0x21, 0xa0}}) {
    const TemporalIdScan scan = Scan(bytes);
    EXPECT_EQ(scan.temporalId, -1);
    EXPECT_EQ(std::string(scan.source), "missing");
  }
}

TEST(TemporalIdScanTest, APrefixNalCutOffAtTheEndIsNotRead) {
  EXPECT_EQ(Scan({9, 9, 9, 9, 0, 0, 0, 1, 0x6e, 0x80, 0x01}).temporalId, -1);
  EXPECT_EQ(Scan({9, 9, 9, 9, 0, 0, 0, 1, 0x6e, 0x80, 0x01, 0x40}).temporalId,
            5);
}

}  // namespace
}  // namespace linux_capture
