#include "launch_boundary/launch_boundary.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "audio/audio_pipeline_text.h"
#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"
#include "support/capture_fixture.h"
#include "video_hardware/hardware_pipeline_text.h"
#include "video_software/raw_pipeline_text.h"

namespace linux_capture {
namespace {

bool SupportsNothing(std::string_view /*property*/) { return false; }
bool SupportsEverything(std::string_view /*property*/) { return true; }

using Names = std::vector<std::string>;

CaptureConfig MonitorConfig() {
  CaptureConfig config = MakeThreeBranchConfig();
  config.backend = "x11";
  config.sourceWidth = 1280;
  config.sourceHeight = 720;
  return config;
}

TEST(OmittedPropertiesTest, ASupportedPropertyStays) {
  Names omitted;
  const std::string text = BuildHardwareVideoPipeline(
      MakeThreeBranchConfig(), GStreamerHardwareEncoderProfiles()[0]);
  EXPECT_EQ(OmitSourceProperties(text, SupportsEverything, omitted), text);
  EXPECT_TRUE(omitted.empty());
}

TEST(OmittedPropertiesTest, AnUnsupportedPropertyIsLeftOutAlone) {
  Names omitted;
  EXPECT_EQ(OmitSourceProperties(
                "pipewiresrc fd=3 path=4 always-copy=false use-bufferpool=true "
                "do-timestamp=true on-disconnect=2 ! fakesink",
                [](std::string_view name) { return name != "use-bufferpool"; },
                omitted),
            "pipewiresrc fd=3 path=4 always-copy=false do-timestamp=true "
            "on-disconnect=2 ! fakesink");
  EXPECT_EQ(omitted, Names{"use-bufferpool"});
}

TEST(OmittedPropertiesTest, WhatTheInstalledElementHasStays) {
  const GstElementPtr source = AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("pipewiresrc", nullptr))));
  const std::string text = OmitUnsupportedSourceProperties(
      "pipewiresrc fd=3 always-copy=false use-bufferpool=true on-disconnect=2 "
      "! fakesink");
  for (const char* name : {"always-copy", "use-bufferpool", "on-disconnect"}) {
    const bool isInstalled =
        g_object_class_find_property(G_OBJECT_GET_CLASS(source.get()), name) !=
        nullptr;
    EXPECT_EQ(text.find(name) != std::string::npos, isInstalled) << name;
  }
}

TEST(OmittedPropertiesTest, EverySourceOfTheTextIsLookedAt) {
  CaptureConfig config;
  config.audioMode = "process";
  config.pipeWireTargetObjects = {41, 58};
  Names omitted;
  const std::string text = OmitSourceProperties(BuildAudioPipeline(config),
                                                SupportsNothing, omitted);
  EXPECT_NE(text.find("pipewiresrc target-object=41 do-timestamp=true ! tee"),
            std::string::npos);
  EXPECT_NE(text.find("pipewiresrc target-object=58 do-timestamp=true ! tee"),
            std::string::npos);
  EXPECT_EQ(text.find("on-disconnect"), std::string::npos);
  EXPECT_EQ(omitted, Names{"on-disconnect"});
}

TEST(OmittedPropertiesTest, NothingElseIsEverLeftOut) {
  Names omitted;
  const std::string text = OmitSourceProperties(
      BuildHardwareVideoPipeline(MakeThreeBranchConfig(),
                                 GStreamerHardwareEncoderProfiles()[0]),
      SupportsNothing, omitted);
  EXPECT_EQ(text.rfind("pipewiresrc fd=42 path=77 do-timestamp=true ! "
                       "video/x-raw(memory:DMABuf) ! glupload ! ",
                       0),
            0U);
  for (const char* kept :
       {"drop-only=true max-rate=30", "bitrate=2500 max-bitrate=3000",
        "repeat-sequence-header=true", "emit-signals=true sync=false"}) {
    EXPECT_NE(text.find(kept), std::string::npos) << kept;
  }
  EXPECT_EQ(omitted, (Names{"always-copy", "use-bufferpool", "on-disconnect"}));
}

TEST(OmittedPropertiesTest, OtherElementsKeepPropertiesOfThatName) {
  Names omitted;
  const std::string text =
      "fakesrc on-disconnect=2 ! fakesink pipewiresrc fd=3 ! fakesink "
      "always-copy=false";
  EXPECT_EQ(OmitSourceProperties(text, SupportsNothing, omitted), text);
  EXPECT_TRUE(omitted.empty());
}

TEST(OmittedPropertiesTest, TheInstalledSourceTakesWhatIsLeft) {
  // Every text that this module builds must be launchable on this machine.
  CaptureConfig audio;
  audio.audioMode = "process";
  audio.pipeWireTargetObjects = {41};
  CaptureConfig portal = MakeThreeBranchConfig();
  portal.pipeWireFd = -1;
  EXPECT_NE(LaunchPipeline(BuildAudioPipeline(audio)), nullptr);
  EXPECT_NE(LaunchPipeline(BuildOpenH264VideoPipeline(portal)), nullptr);
}

TEST(SourceFallbackTest, EveryPipeWireSourceIsTiedToItsTarget) {
  const GstElementPtr pipeline = LaunchPipeline(
      "pipewiresrc name=one ! fakesink pipewiresrc name=two ! fakesink");
  ForbidSourceFallback(pipeline.get());
  for (const char* name : {"one", "two"}) {
    const GstElementPtr source = FindElement(pipeline.get(), name);
    ASSERT_NE(source, nullptr);
    GstStructure* raw = nullptr;
    g_object_get(source.get(), "stream-properties", &raw, nullptr);
    const GstStructurePtr properties(raw);
    ASSERT_NE(properties, nullptr);
    EXPECT_STREQ(
        gst_structure_get_string(properties.get(), "node.dont-fallback"),
        "true");
  }
}

TEST(SourceFallbackTest, APipelineWithoutPipeWireIsLeftAlone) {
  const GstElementPtr pipeline = LaunchPipeline("fakesrc ! fakesink");
  ForbidSourceFallback(pipeline.get());
  const GstElementPtr element = AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("fakesrc", nullptr))));
  ForbidSourceFallback(element.get());
  SUCCEED();
}

// The raw pipeline with a test picture in place of the screen.
class PinnedVideoTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (pipeline_) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }

  void Play(const CaptureConfig& config, GstPadProbeCallback probe = nullptr) {
    std::string text = BuildOpenH264VideoPipeline(config);
    text =
        "videotestsrc name=screen is-live=true pattern=solid-color "
        "foreground-color=0xffc81e32 ! video/x-raw,format=BGRx ! " +
        text.substr(text.find("queue "));
    pipeline_ = LaunchPipeline(text);
    PinRawVideo(pipeline_.get(), config);
    if (probe != nullptr) {
      const GstElementPtr screen = FindElement(pipeline_.get(), "screen");
      const GstPadPtr pad(gst_element_get_static_pad(screen.get(), "src"));
      gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, probe, nullptr,
                        nullptr);
    }
    ASSERT_NE(gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING),
              GST_STATE_CHANGE_FAILURE);
    ASSERT_NE(gst_element_get_state(pipeline_.get(), nullptr, nullptr,
                                    10 * GST_SECOND),
              GST_STATE_CHANGE_FAILURE);
  }

  GstSamplePtr Picture(int branch) {
    const GstElementPtr sink =
        FindElement(pipeline_.get(), "videoSink" + std::to_string(branch));
    return GstSamplePtr(gst_app_sink_try_pull_sample(
        reinterpret_cast<GstAppSink*>(sink.get()), 10 * GST_SECOND));
  }

  static GstVideoInfo InfoOf(GstSample* sample) {
    GstVideoInfo info;
    EXPECT_TRUE(gst_video_info_from_caps(&info, gst_sample_get_caps(sample)));
    return info;
  }

  // Y, Cb and Cr of the middle of a picture.
  static std::array<int, 3> Middle(GstSample* sample) {
    GstVideoInfo info = InfoOf(sample);
    GstVideoFrame frame;
    EXPECT_TRUE(gst_video_frame_map(
        &frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ));
    std::array<int, 3> values{};
    for (guint component = 0; component < 3; ++component) {
      const auto* plane = static_cast<const guint8*>(
          GST_VIDEO_FRAME_COMP_DATA(&frame, component));
      const int stride = GST_VIDEO_FRAME_COMP_STRIDE(&frame, component);
      const int x = GST_VIDEO_FRAME_COMP_WIDTH(&frame, component) / 2;
      const int y = GST_VIDEO_FRAME_COMP_HEIGHT(&frame, component) / 2;
      values[component] = plane[y * stride + x];
    }
    gst_video_frame_unmap(&frame);
    return values;
  }

  GstVideoInfo SourceInfo() {
    const GstElementPtr source = FindElement(pipeline_.get(), "screen");
    const GstPadPtr pad(gst_element_get_static_pad(source.get(), "src"));
    const GstCapsPtr caps(gst_pad_get_current_caps(pad.get()));
    GstVideoInfo info;
    gst_video_info_init(&info);
    EXPECT_TRUE(caps && gst_video_info_from_caps(&info, caps.get()));
    return info;
  }

  GstElementPtr pipeline_;
};

TEST_F(PinnedVideoTest, EveryBranchIsFullRangeBt709) {
  Play(MonitorConfig());
  for (int branch = 0; branch < 3; ++branch) {
    const GstSamplePtr sample = Picture(branch);
    ASSERT_NE(sample, nullptr) << branch;
    const GstVideoInfo info = InfoOf(sample.get());
    EXPECT_EQ(info.colorimetry.range, GST_VIDEO_COLOR_RANGE_0_255);
    EXPECT_EQ(info.colorimetry.matrix, GST_VIDEO_COLOR_MATRIX_BT709);
    EXPECT_EQ(info.colorimetry.primaries, GST_VIDEO_COLOR_PRIMARIES_BT709);
    EXPECT_EQ(info.colorimetry.transfer, GST_VIDEO_TRANSFER_BT709);
    // c81e32 in full-range BT.709.
    const std::array<int, 3> wanted = {68, 119, 212};
    const std::array<int, 3> got = Middle(sample.get());
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_LE(std::abs(got[i] - wanted[i]), 1)
          << "branch " << branch << " component " << i << " is " << got[i];
    }
  }
}

TEST_F(PinnedVideoTest, AnX11SourceRunsAtTheHighestBranchRate) {
  Play(MonitorConfig());
  ASSERT_NE(Picture(0), nullptr);
  EXPECT_EQ(SourceInfo().fps_n, 30);
  EXPECT_EQ(SourceInfo().fps_d, 1);
}

TEST_F(PinnedVideoTest, TheHighestRateCountsWhereverItsBranchIs) {
  CaptureConfig config = MonitorConfig();
  std::swap(config.branches[0], config.branches[2]);
  config.branches[1].fps = 25;
  config.branches[2].fps = 24;
  Play(config);
  ASSERT_NE(Picture(1), nullptr);
  EXPECT_EQ(SourceInfo().fps_n, 25);
}

TEST_F(PinnedVideoTest, EveryBranchKeepsItsOwnSizeAndRate) {
  const CaptureConfig config = MonitorConfig();
  Play(config);
  for (const VideoBranchConfig& branch : config.branches) {
    const GstSamplePtr sample = Picture(branch.branchIndex);
    ASSERT_NE(sample, nullptr);
    const GstVideoInfo info = InfoOf(sample.get());
    EXPECT_EQ(info.width, branch.width);
    EXPECT_EQ(info.height, branch.height);
    EXPECT_EQ(info.fps_n, branch.fps);
    EXPECT_EQ(info.fps_d, 1);
    EXPECT_EQ(GST_VIDEO_INFO_FORMAT(&info), GST_VIDEO_FORMAT_I420);
  }
}

TEST_F(PinnedVideoTest, NoCopiesFillTheTimeBeforeTheFirstPicture) {
  Play(MonitorConfig(), [](GstPad*, GstPadProbeInfo* info, gpointer) {
    auto* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_BUFFER_PTS(buffer) += 500 * GST_MSECOND;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return GST_PAD_PROBE_OK;
  });
  for (int branch = 0; branch < 3; ++branch) {
    const GstSamplePtr sample = Picture(branch);
    ASSERT_NE(sample, nullptr) << branch;
    EXPECT_GE(GST_BUFFER_PTS(gst_sample_get_buffer(sample.get())),
              500 * GST_MSECOND)
        << branch;
  }
}

}  // namespace
}  // namespace linux_capture
