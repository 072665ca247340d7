#include "video_hardware/encoder_profiles.h"

#include <gtest/gtest.h>

#include <string>

namespace linux_capture {
namespace {

struct ProfileRow {
  const char* element;
  const char* memory;
  const char* encoderInput;
  bool isNvenc;
};

constexpr ProfileRow kRows[] = {
    {"nvh264enc", "memory:GLMemory", "GLMemory", true},
    {"nvautogpuh264enc", "memory:GLMemory", "GLMemory", true},
    {"vulkanh264enc", "memory:VulkanImage", "VulkanImage", false},
    {"vah264enc", "memory:DMABuf", "VAMemory", false},
    {"qsvh264enc", "memory:DMABuf", "VAMemory", false}};

TEST(EncoderProfilesTest, TheTableHasItsFiveRowsInOrder) {
  const auto profiles = GStreamerHardwareEncoderProfiles();
  ASSERT_EQ(profiles.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) {
    const GStreamerHardwareEncoderProfile& profile = profiles[i];
    const ProfileRow& row = kRows[i];
    const auto ifNvenc = [&row](const char* text) {
      return std::string(row.isNvenc ? text : "");
    };
    EXPECT_EQ(profile.providerId, "gstreamer-" + std::string(row.element));
    EXPECT_EQ(profile.elementFactory, row.element);
    EXPECT_EQ(profile.memoryFeature, row.memory);
    EXPECT_EQ(profile.sourceMemoryFeature, "DMABuf");
    EXPECT_EQ(profile.encoderInputMemoryFeature, row.encoderInput);
    EXPECT_EQ(profile.bitrateProperty, ifNvenc("bitrate"));
    EXPECT_EQ(profile.maxBitrateProperty, ifNvenc("max-bitrate"));
    EXPECT_EQ(profile.gopSizeProperty, ifNvenc("gop-size"));
    EXPECT_EQ(profile.bFramesProperty, ifNvenc("bframes"));
    EXPECT_EQ(profile.cabacProperty, ifNvenc("cabac"));
    EXPECT_EQ(profile.presetProperty, ifNvenc("preset"));
    EXPECT_EQ(profile.zeroLatencyProperty, ifNvenc("zerolatency"));
    EXPECT_EQ(profile.lowLatencyPreset, ifNvenc("low-latency-hp"));
    EXPECT_EQ(profile.defaultPreset, ifNvenc("hq"));
    EXPECT_EQ(profile.extraProperties,
              ifNvenc(" rc-mode=cbr strict-gop=true aud=true "
                      "repeat-sequence-header=true"));
    EXPECT_EQ(profile.bitrateDivisor, 1000);
    EXPECT_EQ(profile.runnable, row.isNvenc);
  }
}

TEST(EncoderProfilesTest, AnEmptyProfileIsNotRunnable) {
  const GStreamerHardwareEncoderProfile profile{};
  EXPECT_EQ(profile.providerId, "");
  EXPECT_EQ(profile.elementFactory, "");
  EXPECT_EQ(profile.memoryFeature, "");
  EXPECT_EQ(profile.sourceMemoryFeature, "DMABuf");
  EXPECT_EQ(profile.encoderInputMemoryFeature, "GLMemory");
  EXPECT_EQ(profile.bitrateProperty, "");
  EXPECT_EQ(profile.extraProperties, "");
  EXPECT_EQ(profile.bitrateDivisor, 1000);
  EXPECT_FALSE(profile.runnable);
}

}  // namespace
}  // namespace linux_capture
