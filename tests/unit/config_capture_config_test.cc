#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture {
namespace {

TEST(CaptureConfigTest, DefaultRecordHasTheDocumentedSource) {
  const CaptureConfig config;
  EXPECT_EQ(config.backend, "portal");
  EXPECT_EQ(config.kind, "window");
  EXPECT_EQ(config.windowHandle, 0u);
  EXPECT_EQ(config.x, 0);
  EXPECT_EQ(config.y, 0);
  EXPECT_EQ(config.sourceWidth, 0);
  EXPECT_EQ(config.sourceHeight, 0);
}

TEST(CaptureConfigTest, DefaultRecordHasNoPortalStream) {
  const CaptureConfig config;
  EXPECT_EQ(config.pipeWireFd, -1);
  EXPECT_EQ(config.pipeWireNodeId, 0u);
  EXPECT_EQ(config.sourceType, 0);
  EXPECT_EQ(config.label, "");
  EXPECT_EQ(config.streamId, "");
  EXPECT_EQ(config.mappingId, "");
  EXPECT_EQ(config.pipeWireSerial, 0);
  EXPECT_FALSE(config.restoreTokenUsed);
  EXPECT_FALSE(config.restoreTokenUpdated);
}

TEST(CaptureConfigTest, DefaultRecordHasTheDocumentedEncoding) {
  const CaptureConfig config;
  EXPECT_EQ(config.width, 1920);
  EXPECT_EQ(config.height, 1080);
  EXPECT_EQ(config.fps, 60);
  EXPECT_EQ(config.bitrate, 8000000);
  EXPECT_EQ(config.minBitrate, 1000000);
  EXPECT_EQ(config.maxBitrate, 16000000);
  EXPECT_EQ(config.temporalLayerCount, 1);
  EXPECT_EQ(config.gopSize, 120);
  EXPECT_EQ(config.bFrames, 2);
  EXPECT_TRUE(config.enableCABAC);
  EXPECT_TRUE(config.lowLatencyMode);
  EXPECT_EQ(config.encoderRequirement, "allow-degraded");
  EXPECT_TRUE(config.branches.empty());
}

TEST(CaptureConfigTest, DefaultRecordHasNoAudio) {
  const CaptureConfig config;
  EXPECT_EQ(config.audioMode, "none");
  EXPECT_TRUE(config.pipeWireTargetObjects.empty());
  EXPECT_TRUE(config.audioSources.empty());
}

TEST(CaptureConfigTest, FieldsHaveTheDocumentedWidths) {
  static_assert(
      std::is_same_v<decltype(CaptureConfig::windowHandle), std::uint64_t>);
  static_assert(
      std::is_same_v<decltype(CaptureConfig::pipeWireFd), std::int32_t>);
  static_assert(
      std::is_same_v<decltype(CaptureConfig::pipeWireNodeId), std::uint32_t>);
  static_assert(
      std::is_same_v<decltype(CaptureConfig::pipeWireSerial), std::int64_t>);
  static_assert(std::is_same_v<decltype(CaptureConfig::pipeWireTargetObjects),
                               std::vector<std::uint32_t>>);
  static_assert(
      std::is_same_v<decltype(VideoBranchConfig::branchIndex), std::int32_t>);
  static_assert(
      std::is_same_v<decltype(AudioSourceMetadata::processId), std::uint32_t>);
}

TEST(CaptureConfigTest, FieldsAreDeclaredInTheDocumentedOrder) {
  const VideoBranchConfig branch{1, 2, 3, 4, 5, 6, 7};
  EXPECT_EQ(branch.branchIndex, 1);
  EXPECT_EQ(branch.width, 2);
  EXPECT_EQ(branch.height, 3);
  EXPECT_EQ(branch.fps, 4);
  EXPECT_EQ(branch.bitrate, 5);
  EXPECT_EQ(branch.minBitrate, 6);
  EXPECT_EQ(branch.maxBitrate, 7);
  const AudioSourceMetadata source{1, 2, 3, 4, "a", "b", "c", "d", "e"};
  EXPECT_EQ(source.pipeWireTargetObject, 1u);
  EXPECT_EQ(source.pipeWireNodeId, 2u);
  EXPECT_EQ(source.pipeWireObjectSerial, 3u);
  EXPECT_EQ(source.processId, 4u);
  EXPECT_EQ(source.applicationName, "a");
  EXPECT_EQ(source.processBinary, "b");
  EXPECT_EQ(source.nodeName, "c");
  EXPECT_EQ(source.mediaName, "d");
  EXPECT_EQ(source.targetObject, "e");
}

TEST(CaptureConfigTest, CopyOutlivesItsSource) {
  // Longer than any small-string buffer, so that sharing would show.
  const std::string longName(200, 'n');
  auto original = std::make_unique<CaptureConfig>();
  original->label = longName;
  for (std::int32_t i = 0; i < 3; ++i) {
    original->branches.push_back({i, 64 * (i + 1), 36, 30, 1, 2, 3});
  }
  original->pipeWireTargetObjects = {41, 42};
  original->audioSources.resize(2);
  original->audioSources[1].nodeName = longName;

  const CaptureConfig constructed = *original;
  CaptureConfig assigned;
  assigned = *original;
  original->branches[2].width = 1;
  original->audioSources[1].nodeName[0] = 'x';
  original.reset();

  for (const CaptureConfig& copy : {constructed, assigned}) {
    EXPECT_EQ(copy.label, longName);
    ASSERT_EQ(copy.branches.size(), 3u);
    EXPECT_EQ(copy.branches[2].branchIndex, 2);
    EXPECT_EQ(copy.branches[2].width, 192);
    EXPECT_EQ(copy.pipeWireTargetObjects, (std::vector<std::uint32_t>{41, 42}));
    ASSERT_EQ(copy.audioSources.size(), 2u);
    EXPECT_EQ(copy.audioSources[1].nodeName, longName);
  }
}

TEST(CaptureConfigTest, RecordsCompareByValue) {
  CaptureConfig one;
  CaptureConfig other;
  EXPECT_EQ(one, other);
  one.branches.push_back({0, 2, 2, 1, 1, 0, 1});
  EXPECT_NE(one, other);
  other.branches.push_back({0, 2, 2, 1, 1, 0, 1});
  EXPECT_EQ(one, other);
  other.branches[0].maxBitrate = 2;
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace linux_capture
