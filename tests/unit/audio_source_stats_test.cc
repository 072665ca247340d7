#include "state/audio_source_stats.h"

#include <gtest/gtest.h>

#include "support/capture_fixture.h"

namespace linux_capture {
namespace {

class AudioSourceStatsTest : public CaptureFixture {
 protected:
  static std::vector<AudioSourceStats> Reset(const CaptureConfig& config) {
    ResetAudioSourceStatsForConfig(config);
    const std::lock_guard lock(g_audioSourceStatsMutex);
    return *g_audioSourceStats;
  }
};

AudioSourceMetadata Player() {
  AudioSourceMetadata source;
  source.pipeWireTargetObject = 41;
  source.pipeWireNodeId = 42;
  source.pipeWireObjectSerial = 43;
  source.processId = 44;
  source.applicationName = "Player";
  source.processBinary = "player";
  source.nodeName = "player.node";
  source.mediaName = "Song";
  source.targetObject = "player.target";
  return source;
}

TEST_F(AudioSourceStatsTest, EverySourceOfTheConfigurationGetsAnEntry) {
  CaptureConfig config;
  config.pipeWireTargetObjects = {41, 58};
  config.audioSources = {Player(), AudioSourceMetadata{}};
  const auto entries = Reset(config);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].sourceIndex, 0U);
  EXPECT_EQ(entries[0].metadata, Player());
  EXPECT_EQ(entries[1].sourceIndex, 1U);
  EXPECT_EQ(entries[0].packetsCaptured, 0U);
}

TEST_F(AudioSourceStatsTest, AMissingTargetIsTakenFromTheTargetList) {
  CaptureConfig config;
  config.pipeWireTargetObjects = {41, 58};
  AudioSourceMetadata other;
  other.pipeWireTargetObject = 99;
  config.audioSources = {other, AudioSourceMetadata{}, AudioSourceMetadata{}};
  const auto entries = Reset(config);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0].metadata.pipeWireTargetObject, 99U);
  EXPECT_EQ(entries[1].metadata.pipeWireTargetObject, 58U);
  EXPECT_EQ(entries[2].metadata.pipeWireTargetObject, 0U);
}

TEST_F(AudioSourceStatsTest, OldEntriesAreDropped) {
  CaptureConfig config;
  config.audioSources = {Player(), Player(), Player()};
  Reset(config);
  {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    (*g_audioSourceStats)[0].samplesCaptured = 9;
    (*g_audioSourceStats)[0].caps = "audio/x-raw";
  }
  config.audioSources = {Player()};
  const auto entries = Reset(config);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].samplesCaptured, 0U);
  EXPECT_EQ(entries[0].caps, "");
  EXPECT_TRUE(Reset(CaptureConfig{}).empty());
}

}  // namespace
}  // namespace linux_capture
