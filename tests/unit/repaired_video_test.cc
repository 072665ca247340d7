#include <gst/app/gstappsink.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>

#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/repairs.h"
#include "support/capture_fixture.h"
#include "video_software/raw_pipeline_text.h"

namespace linux_capture {
namespace {

CaptureConfig MonitorConfig() {
  CaptureConfig config = MakeThreeBranchConfig();
  config.backend = "x11";
  config.sourceWidth = 1280;
  config.sourceHeight = 720;
  return config;
}

// The raw pipeline with a test picture in place of the screen.
class RepairedVideoTest : public ::testing::Test {
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
    ApplyRepairs(pipeline_.get(), PipelineKind::kX11, {config});
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

TEST_F(RepairedVideoTest, EveryBranchIsFullRangeBt709) {
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

TEST_F(RepairedVideoTest, AnX11SourceRunsAtTheHighestBranchRate) {
  Play(MonitorConfig());
  ASSERT_NE(Picture(0), nullptr);
  EXPECT_EQ(SourceInfo().fps_n, 30);
  EXPECT_EQ(SourceInfo().fps_d, 1);
}

TEST_F(RepairedVideoTest, TheHighestRateCountsWhereverItsBranchIs) {
  CaptureConfig config = MonitorConfig();
  std::swap(config.branches[0], config.branches[2]);
  config.branches[1].fps = 25;
  config.branches[2].fps = 24;
  Play(config);
  ASSERT_NE(Picture(1), nullptr);
  EXPECT_EQ(SourceInfo().fps_n, 25);
}

TEST_F(RepairedVideoTest, EveryBranchKeepsItsOwnSizeAndRate) {
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

TEST_F(RepairedVideoTest, NoCopiesFillTheTimeBeforeTheFirstPicture) {
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
