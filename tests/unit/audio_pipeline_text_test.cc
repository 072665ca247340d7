#include "audio/audio_pipeline_text.h"

#include <gtest/gtest.h>

#include <string>

#include "support/stage_lines.h"

namespace linux_capture {
namespace {

constexpr const char* kMixerAndSink =
    "audiomixer name=mix ! audioconvert ! audioresample ! "
    "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! "
    "appsink name=audioSink emit-signals=true sync=false max-buffers=8 "
    "drop=true ";

std::string SourceText(const std::string& target, const std::string& index) {
  return "pipewiresrc target-object=" + target +
         " do-timestamp=true on-disconnect=2 ! tee name=audioSourceTee" +
         index + " audioSourceTee" + index +
         ". ! queue max-size-buffers=8 leaky=downstream ! audioconvert ! "
         "audioresample ! "
         "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! "
         "queue max-size-buffers=8 leaky=downstream ! mix. audioSourceTee" +
         index +
         ". ! queue max-size-buffers=4 leaky=downstream ! audioconvert ! "
         "audioresample ! "
         "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! "
         "appsink name=audioProbeSink" +
         index + " emit-signals=true sync=false max-buffers=2 drop=true ";
}

CaptureConfig AudioConfig(const std::string& mode,
                          std::vector<std::uint32_t> targets) {
  CaptureConfig config;
  config.audioMode = mode;
  config.pipeWireTargetObjects = std::move(targets);
  return config;
}

TEST(AudioPipelineTextTest, EveryTargetIsMixedAndProbed) {
  EXPECT_EQ(BuildAudioPipeline(AudioConfig("process", {41, 58})),
            kMixerAndSink + SourceText("41", "0") + SourceText("58", "1"));
}

TEST(AudioPipelineTextTest, TargetsAreUnsignedAndMayRepeat) {
  EXPECT_EQ(BuildAudioPipeline(
                AudioConfig("system", {4'294'967'295U, 4'294'967'295U})),
            kMixerAndSink + SourceText("4294967295", "0") +
                SourceText("4294967295", "1"));
}

TEST(AudioPipelineTextTest, TheModesBuildTheSameShape) {
  const std::string text = BuildAudioPipeline(AudioConfig("system", {7}));
  EXPECT_EQ(BuildAudioPipeline(AudioConfig("auto", {7})), text);
  EXPECT_EQ(BuildAudioPipeline(AudioConfig("process", {7})), text);
}

TEST(AudioPipelineTextTest, WithoutTargetsOnlyTheMixerIsLeft) {
  EXPECT_EQ(BuildAudioPipeline(AudioConfig("process", {})), kMixerAndSink);
}

TEST(AudioPipelineTextTest, AnyOtherModeIsRefused) {
  for (const char* mode : {"none", "", "System", "processes"}) {
    EXPECT_EQ(MessageOf([&] { BuildAudioPipeline(AudioConfig(mode, {7})); }),
              "BuildAudioPipeline called when Linux audio mode is none");
  }
}

}  // namespace
}  // namespace linux_capture
