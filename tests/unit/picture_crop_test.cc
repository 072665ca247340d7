#include "launch_boundary/picture_crop.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/repairs.h"
#include "support/capture_fixture.h"
#include "video_software/raw_pipeline_text.h"

namespace linux_capture {
namespace {

constexpr int kScreenWidth = 640;
constexpr int kScreenHeight = 360;
constexpr int kBrightness = 220;

struct Area {
  int x;
  int y;
  int width;
  int height;
};

struct Bounds {
  int left;
  int top;
  int right;
  int bottom;
};

// A screen cast's pipeline with pictures of our own: black, but for a bright
// area that the crop names.
class CropTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CaptureConfig config = MakeThreeBranchConfig();
    config.sourceWidth = kScreenWidth;
    config.sourceHeight = kScreenHeight;
    config.branches = {{.branchIndex = 0,
                        .width = 320,
                        .height = 180,
                        .fps = 30,
                        .bitrate = 1'000'000,
                        .minBitrate = 100'000,
                        .maxBitrate = 2'000'000}};
    const std::string text = BuildOpenH264VideoPipeline(config);
    pipeline_ = LaunchPipeline(
        "appsrc name=in format=time caps=video/x-raw,format=BGRx,width=640,"
        "height=360,framerate=30/1 ! queue name=first ! " +
        text.substr(text.find("videoconvert")));
    CropBehind(FindElement(pipeline_.get(), "first").get());
    ApplyRepairs(pipeline_.get(), PipelineKind::kScreenCast, {config});
    ASSERT_NE(gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING),
              GST_STATE_CHANGE_FAILURE);
  }
  void TearDown() override {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }

  void Push(const Area& bright, bool isTold = true) {
    constexpr gsize kBytes = gsize{4} * kScreenWidth * kScreenHeight;
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, kBytes, nullptr);
    {
      const WritableBuffer pixels(buffer);
      ASSERT_TRUE(pixels.ok());
      std::fill_n(pixels.data(), kBytes, guint8{0});
      for (int y = bright.y; y < bright.y + bright.height; ++y) {
        for (int x = bright.x; x < bright.x + bright.width; ++x) {
          if (y >= kScreenHeight || x >= kScreenWidth) continue;
          std::fill_n(
              pixels.data() + (std::ptrdiff_t{y} * kScreenWidth + x) * 4, 4,
              static_cast<guint8>(kBrightness));
        }
      }
    }
    if (isTold) {
      GstVideoCropMeta* crop = gst_buffer_add_video_crop_meta(buffer);
      crop->x = static_cast<guint>(bright.x);
      crop->y = static_cast<guint>(bright.y);
      crop->width = static_cast<guint>(bright.width);
      crop->height = static_cast<guint>(bright.height);
    }
    GST_BUFFER_PTS(buffer) = GST_SECOND + number_++ * GST_SECOND / 30;
    last_.reset(gst_buffer_ref(buffer));
    PushBuffer(buffer);
  }

  // As a source does that holds its last picture.
  void PushAgain() {
    GstBuffer* again = gst_buffer_copy(last_.get());
    GST_BUFFER_PTS(again) = GST_SECOND + number_++ * GST_SECOND / 30;
    PushBuffer(again);
  }

  void PushBuffer(GstBuffer* buffer) const {
    const GstElementPtr in = FindElement(pipeline_.get(), "in");
    gst_app_src_push_buffer(reinterpret_cast<GstAppSrc*>(in.get()), buffer);
  }

  // Where the next picture of the branch is bright; nothing of it may be half.
  Bounds NextBounds() {
    const GstElementPtr sink = FindElement(pipeline_.get(), "videoSink0");
    const GstSamplePtr sample(gst_app_sink_try_pull_sample(
        reinterpret_cast<GstAppSink*>(sink.get()), 10 * GST_SECOND));
    if (!sample) return {-1, -1, -1, -1};
    GstVideoInfo info;
    gst_video_info_from_caps(&info, gst_sample_get_caps(sample.get()));
    EXPECT_EQ(info.width, 320);
    EXPECT_EQ(info.height, 180);
    GstVideoFrame frame;
    EXPECT_TRUE(gst_video_frame_map(
        &frame, &info, gst_sample_get_buffer(sample.get()), GST_MAP_READ));
    const auto* luma =
        static_cast<const guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    Bounds bounds{info.width, info.height, -1, -1};
    for (int y = 0; y < info.height; ++y) {
      for (int x = 0; x < info.width; ++x) {
        if (luma[y * stride + x] < kBrightness / 2) continue;
        bounds = {std::min(bounds.left, x), std::min(bounds.top, y),
                  std::max(bounds.right, x + 1),
                  std::max(bounds.bottom, y + 1)};
      }
    }
    gst_video_frame_unmap(&frame);
    return bounds;
  }

  static void ExpectNear(const Bounds& got, const Bounds& wanted) {
    EXPECT_NEAR(got.left, wanted.left, 2);
    EXPECT_NEAR(got.top, wanted.top, 2);
    EXPECT_NEAR(got.right, wanted.right, 2);
    EXPECT_NEAR(got.bottom, wanted.bottom, 2);
  }

  GstElementPtr pipeline_;
  GstBufferPtr last_;
  guint64 number_ = 0;
};

TEST_F(CropTest, TheWindowFillsThePictureInProportion) {
  Push({0, 0, 320, 180});
  ExpectNear(NextBounds(), {0, 0, 320, 180});
}

TEST_F(CropTest, AWindowOfAnotherShapeHasBordersAtItsSides) {
  // 200 x 200 becomes 180 x 180, in the middle.
  Push({40, 60, 200, 200});
  ExpectNear(NextBounds(), {70, 0, 250, 180});
}

TEST_F(CropTest, ThePictureFollowsAWindowThatChangesItsSize) {
  Push({0, 0, 320, 180});
  ExpectNear(NextBounds(), {0, 0, 320, 180});
  Push({0, 0, 100, 200});
  ExpectNear(NextBounds(), {115, 0, 205, 180});
  Push({11, 7, 401, 133});
  ExpectNear(NextBounds(), {0, 37, 320, 143});
  Push({0, 0, 320, 180});
  ExpectNear(NextBounds(), {0, 0, 320, 180});
}

TEST_F(CropTest, ARepeatedPictureIsCroppedOnce) {
  Push({40, 60, 200, 200});
  ExpectNear(NextBounds(), {70, 0, 250, 180});
  for (int i = 0; i < 3; ++i) {
    PushAgain();
    ExpectNear(NextBounds(), {70, 0, 250, 180});
  }
  const GstVideoCropMeta* crop = gst_buffer_get_video_crop_meta(last_.get());
  ASSERT_NE(crop, nullptr) << "the source's own buffer was changed";
  EXPECT_EQ(crop->x, 40U);
}

TEST_F(CropTest, WithoutACropThePictureIsTheWholeOne) {
  Push({0, 0, 320, 180});
  NextBounds();
  Push({0, 0, 320, 180}, false);
  ExpectNear(NextBounds(), {0, 0, 160, 90});
  Push({0, 0, 640, 360});
  ExpectNear(NextBounds(), {0, 0, 320, 180});
}

TEST_F(CropTest, WhatLiesOutsideThePictureIsLeftOut) {
  Push({480, 180, 320, 360});
  // 160 x 180 is left of it, which becomes 160 x 180.
  ExpectNear(NextBounds(), {80, 0, 240, 180});
}

TEST_F(CropTest, ACropOfNothingIsNone) {
  for (const Area& nothing :
       {Area{700, 0, 100, 100}, Area{0, 400, 100, 100}, Area{0, 0, 0, 100},
        Area{0, 0, 100, 0}, Area{0, 0, 0, 0}}) {
    Push(nothing);
    const Bounds bounds = NextBounds();
    EXPECT_LT(bounds.right, 0);
    EXPECT_EQ(bounds.left, 320);
  }
  // The least that there is.
  Push({639, 359, 1, 1});
  EXPECT_GE(NextBounds().right, 0);
}

}  // namespace
}  // namespace linux_capture
