#include "audio/audio_rebinding.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>

#include "audio/audio_pipeline_text.h"
#include "launch_boundary/pipeline_launch.h"
#include "state/audio_source_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "support/capture_fixture.h"
#include "support/fake_factory.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

class AudioRebindingTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    g_activeVideoConfig->audioMode = "process";
    g_activeVideoConfig->pipeWireTargetObjects = {41};
    g_activeVideoConfig->audioSources.resize(1);
    ResetAudioSourceStatsForConfig(*g_activeVideoConfig);
    *g_audioPipeline = LaunchPipeline("fakesrc ! fakesink");
    *g_audioPipelineDescription = "the old text";
    g_audioProbeSinkContexts->push_back(
        std::make_unique<AudioProbeSinkContext>());
    g_isCapturing.store(true);
  }

  // The copy with nothing left to record: it needs no PipeWire.
  static CaptureConfig MixerOnly() {
    CaptureConfig config = CopyConfigForRebinding();
    config.pipeWireTargetObjects.clear();
    config.audioSources.clear();
    return config;
  }
};

TEST_F(AudioRebindingTest, ItNeedsARunningCaptureThenAudioThenProcessAudio) {
  g_isCapturing.store(false);
  g_audioPipeline->reset();
  g_activeVideoConfig->audioMode = "system";
  EXPECT_EQ(MessageOf([] { CopyConfigForRebinding(); }),
            "Linux updateAudioTargets requires an active capture pipeline");
  g_isCapturing.store(true);
  EXPECT_EQ(MessageOf([] { CopyConfigForRebinding(); }),
            "Linux updateAudioTargets requires an active audio pipeline");
  *g_audioPipeline = LaunchPipeline("fakesrc ! fakesink");
  EXPECT_EQ(MessageOf([] { CopyConfigForRebinding(); }),
            "Linux updateAudioTargets is only supported for selected-process "
            "audio");
  g_activeVideoConfig->audioMode = "process";
  EXPECT_EQ(CopyConfigForRebinding(), *g_activeVideoConfig);
}

TEST_F(AudioRebindingTest, ACaptureThatEndedMeanwhileIsNotRebound) {
  const CaptureConfig config = MixerOnly();
  constexpr const char* kMessage =
      "Linux updateAudioTargets lost the active audio pipeline before "
      "rebinding";
  g_isCapturing.store(false);
  EXPECT_EQ(MessageOf([&] { RebindAudioTargets(config); }), kMessage);
  EXPECT_NE(g_audioPipeline->get(), nullptr);
  g_isCapturing.store(true);
  g_audioPipeline->reset();
  EXPECT_EQ(MessageOf([&] { RebindAudioTargets(config); }), kMessage);
}

TEST_F(AudioRebindingTest, AnotherAudioModeMeanwhileIsNotRebound) {
  const CaptureConfig config = MixerOnly();
  g_activeVideoConfig->audioMode = "system";
  EXPECT_EQ(MessageOf([&] { RebindAudioTargets(config); }),
            "Linux updateAudioTargets active audio mode changed before "
            "rebinding");
  EXPECT_NE(g_audioPipeline->get(), nullptr);
  EXPECT_EQ(*g_audioPipelineDescription, "the old text");
}

TEST_F(AudioRebindingTest, TheNewTargetsReplaceTheOldOnes) {
  const GstElement* old = g_audioPipeline->get();
  gst_object_ref(g_audioPipeline->get());
  const GstElementPtr kept(g_audioPipeline->get());
  const CaptureConfig config = MixerOnly();
  const std::string text = RebindAudioTargets(config);
  EXPECT_EQ(text, BuildAudioPipeline(config));
  EXPECT_EQ(*g_audioPipelineDescription, text);
  EXPECT_NE(g_audioPipeline->get(), nullptr);
  EXPECT_NE(g_audioPipeline->get(), old);
  EXPECT_EQ(GST_STATE(kept.get()), GST_STATE_NULL);
  EXPECT_TRUE(g_audioProbeSinkContexts->empty());
  EXPECT_TRUE(g_activeVideoConfig->pipeWireTargetObjects.empty());
  EXPECT_TRUE(g_activeVideoConfig->audioSources.empty());
  const std::lock_guard lock(g_audioSourceStatsMutex);
  EXPECT_TRUE(g_audioSourceStats->empty());
}

TEST_F(AudioRebindingTest, SilenceNeedsARunningCaptureAndNothingElse) {
  g_isCapturing.store(false);
  EXPECT_EQ(MessageOf([] { RecordSilence(); }),
            "silence requires an active capture pipeline");
  g_isCapturing.store(true);
  g_audioPipeline->reset();
  g_activeVideoConfig->audioMode = "none";
  RecordSilence();
  EXPECT_NE(g_audioPipeline->get(), nullptr);
  EXPECT_EQ(*g_audioPipelineDescription, BuildAudioPipeline(MixerOnly()));
  EXPECT_EQ(CopyConfigForRebinding().audioMode, "process");
  EXPECT_TRUE(CopyConfigForRebinding().pipeWireTargetObjects.empty());
}

TEST_F(AudioRebindingTest, TotalsAreKeptAndRecentValuesStartAgain) {
  g_audioSamplesCaptured.Set(1);
  g_audioPacketsCaptured.Set(2);
  g_audioNonZeroSamplesCaptured.Set(3);
  g_audioAbsoluteSampleSum.Set(4);
  g_audioPeakAbsoluteSample.Set(5);
  g_audioClippedSamplesCaptured.Set(6);
  g_audioSilentPackets.Set(7);
  g_audioBridgeQueuedPackets.Set(8);
  g_audioBridgeDroppedPackets.Set(9);
  for (Counter* counter :
       {&g_audioConsecutiveSilentPackets, &g_audioMaxConsecutiveSilentPackets,
        &g_audioLastPacketAtMs, &g_audioLastNonZeroAtMs,
        &g_audioLastNonZeroSamples, &g_audioLastAbsoluteSampleSum,
        &g_audioLastClippedSamples}) {
    counter->Set(11);
  }
  g_audioLastPeakAbsoluteSample.Set(11);
  // A pipeline that cannot start leaves the counters as the reset left them.
  const FakeFactory noMixer("audiomixer");
  EXPECT_NE(MessageOf([] { RebindAudioTargets(MixerOnly()); }), "");
  for (const Counter* counter :
       {&g_audioConsecutiveSilentPackets, &g_audioMaxConsecutiveSilentPackets,
        &g_audioLastPacketAtMs, &g_audioLastNonZeroAtMs,
        &g_audioLastNonZeroSamples, &g_audioLastAbsoluteSampleSum,
        &g_audioLastClippedSamples}) {
    EXPECT_EQ(counter->Get(), 0U);
  }
  EXPECT_EQ(g_audioLastPeakAbsoluteSample.Get(), 0U);
  EXPECT_EQ(g_audioSamplesCaptured.Get(), 1U);
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 2U);
  EXPECT_EQ(g_audioNonZeroSamplesCaptured.Get(), 3U);
  EXPECT_EQ(g_audioAbsoluteSampleSum.Get(), 4U);
  EXPECT_EQ(g_audioPeakAbsoluteSample.Get(), 5U);
  EXPECT_EQ(g_audioClippedSamplesCaptured.Get(), 6U);
  EXPECT_EQ(g_audioSilentPackets.Get(), 7U);
  EXPECT_EQ(g_audioBridgeQueuedPackets.Get(), 8U);
  EXPECT_EQ(g_audioBridgeDroppedPackets.Get(), 9U);
}

TEST_F(AudioRebindingTest, AFailedLaunchLeavesNoAudioPipeline) {
  const FakeFactory noMixer("audiomixer");
  CaptureConfig config = MixerOnly();
  EXPECT_NE(MessageOf([&] { RebindAudioTargets(config); }), "");
  EXPECT_EQ(g_audioPipeline->get(), nullptr);
  EXPECT_EQ(*g_audioPipelineDescription, BuildAudioPipeline(config));
  EXPECT_TRUE(g_activeVideoConfig->pipeWireTargetObjects.empty());
  EXPECT_EQ(MessageOf([] { CopyConfigForRebinding(); }),
            "Linux updateAudioTargets requires an active audio pipeline");
}

}  // namespace
}  // namespace linux_capture
