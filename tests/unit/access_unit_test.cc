#include "video_software/access_unit.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace linux_capture {
namespace {

// An encoder's output with storage for its layers.
class Output {
 public:
  Output() { info_.eFrameType = videoFrameTypeP; }

  SLayerBSInfo& AddLayer(std::vector<int> nalLengths,
                         std::vector<std::uint8_t> bytes, int temporalId = 0,
                         EVideoFrameType type = videoFrameTypeP) {
    lengths_.push_back(std::move(nalLengths));
    bytes_.push_back(std::move(bytes));
    SLayerBSInfo& layer = info_.sLayerInfo[info_.iLayerNum++];
    layer.uiTemporalId = static_cast<unsigned char>(temporalId);
    layer.eFrameType = type;
    layer.iNalCount = static_cast<int>(lengths_.back().size());
    layer.pNalLengthInByte = lengths_.back().data();
    layer.pBsBuf = bytes_.back().data();
    return layer;
  }

  SFrameBSInfo& info() { return info_; }
  AccessUnitSummary Summary() const { return SummariseAccessUnit(info_); }
  std::vector<std::uint8_t> Join() const {
    return JoinAccessUnit(info_, Summary().size);
  }

 private:
  SFrameBSInfo info_{};
  std::vector<std::vector<int>> lengths_;
  std::vector<std::vector<std::uint8_t>> bytes_;
};

using Bytes = std::vector<std::uint8_t>;

TEST(AccessUnitTest, LayersAreJoinedInOrder) {
  Output output;
  output.AddLayer({2, 1}, {1, 2, 3});
  output.AddLayer({2}, {4, 5});
  EXPECT_EQ(output.Summary().size, 5U);
  EXPECT_EQ(output.Join(), (Bytes{1, 2, 3, 4, 5}));
}

TEST(AccessUnitTest, OnlyPositiveNalLengthsCount) {
  Output output;
  output.AddLayer({2, 0, -7, 1}, {1, 2, 3});
  EXPECT_EQ(output.Summary().size, 3U);
  EXPECT_EQ(output.Join(), (Bytes{1, 2, 3}));
}

TEST(AccessUnitTest, IncompleteLayersDoNotCount) {
  Output output;
  output.AddLayer({1}, {1}, 3, videoFrameTypeIDR).iNalCount = 0;
  output.AddLayer({1}, {1}, 3, videoFrameTypeIDR).pNalLengthInByte = nullptr;
  output.AddLayer({1}, {1}, 3, videoFrameTypeIDR).pBsBuf = nullptr;
  output.AddLayer({1}, {9}, 1);
  EXPECT_EQ(output.Summary().size, 1U);
  EXPECT_EQ(output.Summary().temporalIndex, 1);
  EXPECT_FALSE(output.Summary().isIdr);
  EXPECT_EQ(output.Join(), Bytes{9});
}

TEST(AccessUnitTest, NothingAtAllHasNoSize) {
  Output output;
  EXPECT_EQ(output.Summary().size, 0U);
  EXPECT_EQ(output.Summary().temporalIndex, 0);
  EXPECT_TRUE(output.Join().empty());
  output.info().iLayerNum = -1;
  EXPECT_EQ(output.Summary().size, 0U);
}

TEST(AccessUnitTest, TheHighestTemporalIdCountsUpToThree) {
  Output output;
  output.AddLayer({1}, {1}, 2);
  output.AddLayer({1}, {2}, 1);
  EXPECT_EQ(output.Summary().temporalIndex, 2);
  output.AddLayer({1}, {3}, 5);
  EXPECT_EQ(output.Summary().temporalIndex, 3);
}

TEST(AccessUnitTest, AnIdrIsReportedByTheFrameOrByALayer) {
  Output byFrame;
  byFrame.AddLayer({1}, {1});
  EXPECT_FALSE(byFrame.Summary().isIdr);
  byFrame.info().eFrameType = videoFrameTypeIDR;
  EXPECT_TRUE(byFrame.Summary().isIdr);

  Output byLayer;
  byLayer.AddLayer({1}, {1});
  byLayer.AddLayer({1}, {1}, 0, videoFrameTypeIDR);
  EXPECT_TRUE(byLayer.Summary().isIdr);

  Output intra;
  intra.info().eFrameType = videoFrameTypeI;
  intra.AddLayer({1}, {1}, 0, videoFrameTypeI);
  EXPECT_FALSE(intra.Summary().isIdr);
}

}  // namespace
}  // namespace linux_capture
