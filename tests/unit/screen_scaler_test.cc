#include "launch_boundary/screen_scaler.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

constexpr int kLight = 235;

// Columns of two pixels, light and dark in turn.
GstBufferPtr StripedPicture(int width, int height) {
  GstVideoInfo info;
  gst_video_info_init(&info);
  gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420,
                            static_cast<guint>(width),
                            static_cast<guint>(height));
  std::vector<std::uint8_t> bytes(info.size, 128);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      bytes[static_cast<std::size_t>(y * info.stride[0] + x)] =
          x % 4 < 2 ? kLight : 0;
    }
  }
  GstBufferPtr buffer(gst_buffer_new_allocate(nullptr, info.size, nullptr));
  gst_buffer_fill(buffer.get(), 0, bytes.data(), bytes.size());
  GST_BUFFER_PTS(buffer.get()) = 40 * GST_MSECOND;
  return buffer;
}

struct Scaling {
  GstSamplePtr sample;
  std::string elementName;
  gint method = -1;
  bool isReplaced = false;
  bool isScaler = false;
};

// A branch of a raw video pipeline around one picture.
Scaling Scale(int width, int height, const std::string& outCaps,
              bool isReplaced = true) {
  const GstElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
      ("appsrc name=in format=time caps=\"video/x-raw,format=I420,width=" +
       std::to_string(width) + ",height=" + std::to_string(height) +
       ",framerate=30/1\" ! videoscale name=scaler method=lanczos ! "
       "video/x-raw,format=I420," +
       outCaps + " ! appsink name=out sync=false")
          .c_str(),
      nullptr))));
  const GstElementPtr stock = FindElement(pipeline.get(), "scaler");
  if (isReplaced) ReplaceScalers(pipeline.get());
  Scaling result;
  const GstElementPtr in = FindElement(pipeline.get(), "in");
  const GstElementPtr out = FindElement(pipeline.get(), "out");
  const GstPadPtr pad(gst_element_get_static_pad(in.get(), "src"));
  const GstPadPtr peer(gst_pad_get_peer(pad.get()));
  const GstElementPtr scaler(gst_pad_get_parent_element(peer.get()));
  result.isReplaced = scaler.get() != stock.get();
  result.isScaler = IsVideoScaler(scaler.get());
  const GCharPtr name(gst_element_get_name(scaler.get()));
  result.elementName = name.get();
  g_object_get(scaler.get(), "method", &result.method, nullptr);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  gst_app_src_push_buffer(GST_APP_SRC(in.get()),
                          StripedPicture(width, height).release());
  gst_app_src_end_of_stream(GST_APP_SRC(in.get()));
  result.sample.reset(
      gst_app_sink_try_pull_sample(GST_APP_SINK(out.get()), 10 * GST_SECOND));
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return result;
}

std::vector<std::uint8_t> BytesOf(const Scaling& scaling) {
  const ReadableBuffer bytes(gst_sample_get_buffer(scaling.sample.get()));
  return {bytes.data(), bytes.data() + bytes.size()};
}

// Whether all of a row or a column of the luma has one value.
bool IsAll(const std::vector<std::uint8_t>& bytes, std::size_t start,
           std::size_t step, std::size_t count, int value) {
  for (std::size_t i = 0; i < count; ++i) {
    if (bytes[start + i * step] != value) return false;
  }
  return true;
}

std::string CapsOf(const Scaling& scaling) {
  const GCharPtr text(
      gst_caps_to_string(gst_sample_get_caps(scaling.sample.get())));
  return text.get();
}

TEST(ScreenScalerTest, TakesThePlaceOfTheStockElement) {
  const Scaling ours = Scale(64, 32, "width=32,height=16");
  const Scaling stock = Scale(64, 32, "width=32,height=16", false);
  EXPECT_TRUE(ours.isReplaced);
  EXPECT_TRUE(ours.isScaler);
  EXPECT_TRUE(stock.isScaler);
  EXPECT_EQ(ours.elementName, "scaler");
  EXPECT_EQ(ours.method, stock.method);
  ASSERT_TRUE(ours.sample && stock.sample);
  EXPECT_EQ(CapsOf(ours), CapsOf(stock));
  EXPECT_EQ(GST_BUFFER_PTS(gst_sample_get_buffer(ours.sample.get())),
            40 * GST_MSECOND);
}

TEST(ScreenScalerTest, EverySampleIsTheMeanOfWhatItCovers) {
  // Four columns make three: all of a light one and a third of the next.
  const Scaling ours = Scale(64, 32, "width=48,height=24");
  ASSERT_TRUE(ours.sample);
  const auto bytes = BytesOf(ours);
  for (std::size_t x = 0; x < 48; x += 3) {
    EXPECT_NEAR(bytes[x], kLight, 1);
    EXPECT_NEAR(bytes[x + 1], kLight / 2.0, 1);
    EXPECT_NEAR(bytes[x + 2], 0, 1);
  }
  EXPECT_EQ(bytes.back(), 128);
}

TEST(ScreenScalerTest, WhatIsEnlargedIsLeftToTheStockElement) {
  const Scaling ours = Scale(64, 32, "width=128,height=64");
  const Scaling stock = Scale(64, 32, "width=128,height=64", false);
  ASSERT_TRUE(ours.sample && stock.sample);
  EXPECT_EQ(BytesOf(ours), BytesOf(stock));
}

TEST(ScreenScalerTest, BordersAreLeftToTheStockElement) {
  const std::string square = "width=32,height=32,pixel-aspect-ratio=1/1";
  const Scaling ours = Scale(64, 32, square);
  const Scaling stock = Scale(64, 32, square, false);
  ASSERT_TRUE(ours.sample && stock.sample);
  EXPECT_EQ(BytesOf(ours), BytesOf(stock));
}

// The stock element writes 16, which full range shows as a dark grey. Widths
// after which no row has padding.
TEST(ScreenScalerTest, BordersAreBlackInFullRange) {
  struct Sizes {
    int wide, high;
    std::size_t outWide, outHigh;
  };
  for (const Sizes& sizes :
       {Sizes{64, 32, 32, 32}, Sizes{32, 64, 64, 32}, Sizes{60, 26, 32, 32},
        Sizes{26, 60, 32, 32}, Sizes{64, 30, 32, 32}, Sizes{67, 33, 80, 90},
        Sizes{33, 67, 96, 80}, Sizes{100, 62, 64, 64},
        Sizes{640, 360, 480, 480}, Sizes{400, 180, 320, 180}}) {
    const std::size_t outWide = sizes.outWide;
    const std::size_t outHigh = sizes.outHigh;
    const std::string caps = "width=" + std::to_string(outWide) +
                             ",height=" + std::to_string(outHigh) +
                             ",pixel-aspect-ratio=1/1,colorimetry=1:3:5:1";
    const Scaling ours = Scale(sizes.wide, sizes.high, caps);
    const Scaling stock = Scale(sizes.wide, sizes.high, caps, false);
    ASSERT_TRUE(ours.sample && stock.sample);
    const auto bytes = BytesOf(ours);
    auto expected = BytesOf(stock);
    const auto grey = expected;
    const auto isGreyRow = [&](std::size_t y) {
      return IsAll(grey, y * outWide, 1, outWide, 16);
    };
    const auto isGreyColumn = [&](std::size_t x) {
      return IsAll(grey, x, outWide, outHigh, 16);
    };
    std::size_t top = 0;
    std::size_t left = 0;
    std::size_t bottom = outHigh;
    std::size_t right = outWide;
    while (isGreyRow(top)) ++top;
    while (isGreyRow(bottom - 1)) --bottom;
    while (isGreyColumn(left)) ++left;
    while (isGreyColumn(right - 1)) --right;
    ASSERT_LT((bottom - top) * (right - left), outWide * outHigh);
    for (std::size_t i = 0; i < outWide * outHigh; ++i) {
      const std::size_t x = i % outWide;
      const std::size_t y = i / outWide;
      if (x < left || x >= right || y < top || y >= bottom) expected[i] = 0;
    }
    EXPECT_TRUE(bytes == expected)
        << sizes.wide << "x" << sizes.high << " to " << caps;
  }
}

TEST(ScreenScalerTest, WhatHasAnotherShapeIsNotStretched) {
  const Scaling ours = Scale(64, 32, "width=32,height=32");
  const Scaling bordered =
      Scale(64, 32, "width=32,height=32,pixel-aspect-ratio=1/1", false);
  ASSERT_TRUE(ours.sample && bordered.sample);
  EXPECT_EQ(BytesOf(ours), BytesOf(bordered));
  EXPECT_LT(BytesOf(ours).front(), 20);
}

TEST(ScreenScalerTest, WhatIsRoundedToEvenSizesGetsNoBorders) {
  const Scaling ours = Scale(67, 33, "width=64,height=32");
  ASSERT_TRUE(ours.sample);
  EXPECT_NEAR(BytesOf(ours).front(), kLight, 1);
}

TEST(ScreenScalerTest, AnotherShapeIsMadeByOtherPixels) {
  const Scaling ours = Scale(64, 32, "width=30,height=16");
  const Scaling stock = Scale(64, 32, "width=30,height=16", false);
  ASSERT_TRUE(ours.sample && stock.sample);
  EXPECT_EQ(CapsOf(ours), CapsOf(stock));
}

}  // namespace
}  // namespace linux_capture
