#include "stats/stats_reset.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "support/capture_fixture.h"
#include "video_software/openh264_branches.h"

namespace linux_capture {
namespace {

const std::vector<Counter*>& ZeroedCounters() {
  static const std::vector<Counter*> counters = {
      &g_framesCaptured,
      &g_framesEncoded,
      &g_keyframesEncoded,
      &g_deltaFramesEncoded,
      &g_cpuMappedVideoFrames,
      &g_audioSamplesCaptured,
      &g_audioPacketsCaptured,
      &g_audioNonZeroSamplesCaptured,
      &g_audioAbsoluteSampleSum,
      &g_audioClippedSamplesCaptured,
      &g_audioSilentPackets,
      &g_audioConsecutiveSilentPackets,
      &g_audioMaxConsecutiveSilentPackets,
      &g_audioLastPacketAtMs,
      &g_audioLastNonZeroAtMs,
      &g_audioLastNonZeroSamples,
      &g_audioLastAbsoluteSampleSum,
      &g_audioLastClippedSamples,
      &g_firstVideoTimestampUs,
      &g_lastVideoTimestampUs,
      &g_firstAudioTimestampUs,
      &g_lastAudioTimestampUs,
      &g_videoBridgeQueuedPackets,
      &g_videoBridgeDroppedPackets,
      &g_videoBridgeSuppressedDeltaPackets,
      &g_audioBridgeQueuedPackets,
      &g_audioBridgeDroppedPackets,
      &g_openH264Errors};
  return counters;
}

BranchCounters* const kSlots[] = {&g_videoBridgeQueuedByBranch,
                                  &g_videoBridgeDroppedByBranch,
                                  &g_videoBridgeSuppressedDeltaByBranch,
                                  &g_videoBridgeKeyframeRecoveryByBranch,
                                  &g_hardwareSyntheticTemporalSequenceByBranch};

// Gives every statistic a value of its own that no reset would leave.
class StatsResetTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    for (Counter* counter : ZeroedCounters()) counter->Set(17);
    g_audioPeakAbsoluteSample.Set(17);
    g_audioLastPeakAbsoluteSample.Set(17);
    g_gstBusErrors.Set(18);
    g_gstBusEos.Set(19);
    g_width.Set(20);
    g_height.Set(21);
    g_sessionClockOriginUs.Set(22);
    for (BranchCounters* slots : kSlots) {
      for (auto& slot : *slots) slot.store(23);
    }
    for (auto& flag : g_videoBridgeNeedsKeyframeRecovery) flag.store(true);
    *g_lastGstBusError = "bus";
    g_lastOpenH264Error->Set("encoder");
    *g_videoPipelineDescription = "video text";
    *g_audioPipelineDescription = "audio text";
    *g_selectedVideoEncoder = "selected";
    g_encoderSelection->providerTier = "hardware-simulcast-fps";
    g_encoderSelection->isHardwareEncoder = true;
    g_encoderSelection->temporalMetadataSource = "other";
    g_activeHardwareProfile->runnable = true;
    g_providerProbeReports->clear();
    const std::lock_guard lock(g_capsMutex);
    *g_lastVideoCaps = "video caps";
    *g_lastAudioCaps = "audio caps";
  }

  static void ExpectCountersAreZero() {
    for (std::size_t i = 0; i < ZeroedCounters().size(); ++i) {
      EXPECT_EQ(ZeroedCounters()[i]->Get(), 0U) << "counter " << i;
    }
    EXPECT_EQ(g_audioPeakAbsoluteSample.Get(), 0U);
    EXPECT_EQ(g_audioLastPeakAbsoluteSample.Get(), 0U);
    for (const BranchCounters* slots : kSlots) {
      for (const auto& slot : *slots) EXPECT_EQ(slot.load(), 0U);
    }
    for (const auto& flag : g_videoBridgeNeedsKeyframeRecovery) {
      EXPECT_FALSE(flag.load());
    }
  }
};

TEST_F(StatsResetTest, ResetStatsZeroesWhatWasCounted) {
  ResetStatistics();
  ExpectCountersAreZero();
  EXPECT_EQ(g_lastOpenH264Error->Get(), "");
}

TEST_F(StatsResetTest, ResetStatsKeepsWhatDescribesTheSession) {
  ResetStatistics();
  EXPECT_EQ(g_width.Get(), 20);
  EXPECT_EQ(g_height.Get(), 21);
  EXPECT_EQ(g_sessionClockOriginUs.Get(), 22U);
  EXPECT_EQ(g_gstBusErrors.Get(), 18U);
  EXPECT_EQ(g_gstBusEos.Get(), 19U);
  EXPECT_EQ(*g_lastGstBusError, "bus");
  EXPECT_EQ(*g_videoPipelineDescription, "video text");
  EXPECT_EQ(*g_audioPipelineDescription, "audio text");
  EXPECT_EQ(*g_selectedVideoEncoder, "selected");
  EXPECT_EQ(g_encoderSelection->providerTier, "hardware-simulcast-fps");
  EXPECT_TRUE(g_encoderSelection->isHardwareEncoder);
  EXPECT_TRUE(g_activeHardwareProfile->runnable);
  EXPECT_TRUE(g_providerProbeReports->empty());
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(*g_lastVideoCaps, "video caps");
  EXPECT_EQ(*g_lastAudioCaps, "audio caps");
}

TEST_F(StatsResetTest, ResetStatsKeepsWhoTheAudioSourcesAre) {
  AudioSourceStats source;
  source.sourceIndex = 3;
  source.metadata.applicationName = "Player";
  source.metadata.pipeWireTargetObject = 41;
  source.samplesCaptured = 1;
  source.peakAbsoluteSample = 2;
  source.lastClippedSamples = 3;
  source.caps = "audio/x-raw";
  {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    *g_audioSourceStats = {source};
  }
  ResetStatistics();
  const std::lock_guard lock(g_audioSourceStatsMutex);
  ASSERT_EQ(g_audioSourceStats->size(), 1U);
  const AudioSourceStats& kept = g_audioSourceStats->front();
  EXPECT_EQ(kept.sourceIndex, 3U);
  EXPECT_EQ(kept.metadata, source.metadata);
  EXPECT_EQ(kept.samplesCaptured, 0U);
  EXPECT_EQ(kept.peakAbsoluteSample, 0U);
  EXPECT_EQ(kept.lastClippedSamples, 0U);
  EXPECT_EQ(kept.caps, "");
}

TEST_F(StatsResetTest, ResetStatsKeepsTheBitratesOfHardwareBranchesOnly) {
  VideoBranchStats hardware;
  hardware.branchIndex = 1;
  hardware.width = 2;
  hardware.height = 3;
  hardware.fps = 4;
  hardware.appliedBitrate = 5;
  hardware.appliedMaxBitrate = 6;
  hardware.encodedFrames = 7;
  hardware.maxHardwareKeyframeRecoveryLatencyMs = 8;
  hardware.temporalFrameCounts = {9, 9, 9, 9};
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    *g_hardwareBranchStats = {hardware};
  }
  InitializeOpenH264Branch(MakeBranch(0, 64, 64, 30, 200'000, 300'000), 1);
  g_openH264Branches->front()->stats.appliedBitrate = 5;
  g_openH264Branches->front()->stats.encodedFrames = 7;
  ResetStatistics();
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    const VideoBranchStats& kept = g_hardwareBranchStats->front();
    EXPECT_EQ(kept.branchIndex, 1);
    EXPECT_EQ(kept.width, 2);
    EXPECT_EQ(kept.height, 3);
    EXPECT_EQ(kept.fps, 4);
    EXPECT_EQ(kept.appliedBitrate, 5);
    EXPECT_EQ(kept.appliedMaxBitrate, 6);
    EXPECT_EQ(kept.encodedFrames, 0U);
    EXPECT_EQ(kept.maxHardwareKeyframeRecoveryLatencyMs, 0U);
    EXPECT_EQ(kept.temporalFrameCounts, (std::array<std::uint64_t, 4>{}));
  }
  EXPECT_EQ(g_openH264Branches->front()->stats.width, 64);
  EXPECT_EQ(g_openH264Branches->front()->stats.appliedBitrate, 0);
  EXPECT_EQ(g_openH264Branches->front()->stats.encodedFrames, 0U);
}

TEST_F(StatsResetTest, ANewSessionStartsFromTheRequest) {
  CaptureConfig config;
  config.width = 1280;
  config.height = 720;
  config.audioSources.resize(2);
  const auto before = static_cast<std::uint64_t>(g_get_monotonic_time());
  ResetForNewSession(config);
  ExpectCountersAreZero();
  EXPECT_EQ(g_width.Get(), 1280);
  EXPECT_EQ(g_height.Get(), 720);
  EXPECT_GE(g_sessionClockOriginUs.Get(), before);
  EXPECT_LE(g_sessionClockOriginUs.Get(),
            static_cast<std::uint64_t>(g_get_monotonic_time()));
  EXPECT_EQ(g_gstBusErrors.Get(), 0U);
  EXPECT_EQ(g_gstBusEos.Get(), 0U);
  const std::lock_guard lock(g_audioSourceStatsMutex);
  EXPECT_EQ(g_audioSourceStats->size(), 2U);
}

TEST_F(StatsResetTest, ANewSessionClearsTextsAndSelection) {
  ResetForNewSession(CaptureConfig{});
  EXPECT_EQ(*g_lastGstBusError, "");
  EXPECT_EQ(g_lastOpenH264Error->Get(), "");
  EXPECT_EQ(*g_videoPipelineDescription, "");
  EXPECT_EQ(*g_audioPipelineDescription, "");
  EXPECT_EQ(*g_selectedVideoEncoder, "");
  EXPECT_EQ(*g_activeHardwareProfile, GStreamerHardwareEncoderProfile{});
  const EncoderSelection& selection = *g_encoderSelection;
  EXPECT_EQ(selection.selectedProvider, "");
  EXPECT_EQ(selection.encoderProvider, "");
  EXPECT_EQ(selection.providerTier, "degraded-cpu");
  EXPECT_EQ(selection.hardwareParityMode, "none");
  EXPECT_EQ(selection.sourceMemoryFeature, "SystemMemory");
  EXPECT_EQ(selection.encoderInputMemoryFeature, "SystemMemoryI420");
  EXPECT_EQ(selection.temporalMetadataSource, "missing");
  EXPECT_FALSE(selection.isHardwareEncoder);
  EXPECT_TRUE(selection.isDegradedCpuFallback);
  EXPECT_FALSE(selection.hardwareTransportSatisfied);
  EXPECT_FALSE(selection.hardwareSimulcastFpsSatisfied);
  EXPECT_FALSE(selection.dmaBufNegotiated);
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(*g_lastVideoCaps, "");
  EXPECT_EQ(*g_lastAudioCaps, "");
}

}  // namespace
}  // namespace linux_capture
