#include "launch_boundary/screen_converter.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/gst_handles.h"
#include "launch_boundary/colour_rounding.h"
#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr int kWidth = 96;
constexpr int kHeight = 50;

using BufferOwner = std::unique_ptr<GstBuffer, decltype([](GstBuffer* buffer) {
                                      gst_buffer_unref(buffer);
                                    })>;

BufferOwner RandomPicture(GstVideoFormat format) {
  GstVideoInfo info;
  gst_video_info_init(&info);
  gst_video_info_set_format(&info, format, kWidth, kHeight);
  std::mt19937 random(5);
  BufferOwner buffer(gst_buffer_new_allocate(nullptr, info.size, nullptr));
  std::vector<std::uint8_t> bytes(info.size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  gst_buffer_fill(buffer.get(), 0, bytes.data(), bytes.size());
  GST_BUFFER_PTS(buffer.get()) = 40 * GST_MSECOND;
  GST_BUFFER_DURATION(buffer.get()) = 20 * GST_MSECOND;
  return buffer;
}

struct Converted {
  GstSamplePtr sample;
  bool hasScreenConverter = false;
  bool hasOwnWork = false;  // did the converter convert anything
};

// The head of a raw video pipeline around one picture.
Converted Convert(const std::string& inCaps, GstVideoFormat format,
                  bool isInserted) {
  const GstElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
      ("appsrc name=in is-live=false format=time caps=\"" + inCaps +
       "\" ! videoconvert name=own dither=none ! "
       "video/x-raw,format=I420,colorimetry=1:3:5:1 ! "
       "appsink name=out sync=false")
          .c_str(),
      nullptr))));
  Converted result;
  CorrectConversionRounding(pipeline.get());
  if (isInserted) InsertScreenConverters(pipeline.get());
  const GstElementPtr in = FindElement(pipeline.get(), "in");
  const GstElementPtr out = FindElement(pipeline.get(), "out");
  const GstElementPtr own = FindElement(pipeline.get(), "own");
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  gst_app_src_push_buffer(GST_APP_SRC(in.get()),
                          RandomPicture(format).release());
  gst_app_src_end_of_stream(GST_APP_SRC(in.get()));
  result.sample.reset(
      gst_app_sink_try_pull_sample(GST_APP_SINK(out.get()), 10 * GST_SECOND));
  const GstPadPtr pad(gst_element_get_static_pad(own.get(), "sink"));
  const GstCapsPtr caps(gst_pad_get_current_caps(pad.get()));
  result.hasOwnWork =
      caps != nullptr &&
      std::string(gst_structure_get_string(
          gst_caps_get_structure(caps.get(), 0), "format")) != "I420";
  const GstPadPtr peer(gst_pad_get_peer(pad.get()));
  const GstElementPtr before(gst_pad_get_parent_element(peer.get()));
  result.hasScreenConverter = before.get() != in.get();
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return result;
}

std::vector<std::uint8_t> BytesOf(const Converted& converted) {
  const ReadableBuffer bytes(gst_sample_get_buffer(converted.sample.get()));
  return {bytes.data(), bytes.data() + bytes.size()};
}

std::string CapsOf(const std::string& format) {
  return "video/x-raw,format=" + format + ",width=" + std::to_string(kWidth) +
         ",height=" + std::to_string(kHeight) + ",framerate=30/1";
}

class ScreenFormatTest
    : public testing::TestWithParam<std::pair<const char*, GstVideoFormat>> {
 protected:
  void SetUp() override { ASSERT_NE(VectorRoutines(), nullptr); }
};

TEST_P(ScreenFormatTest, IsConvertedWithinOneStepOfGStreamersOwnConversion) {
  const auto [name, format] = GetParam();
  const Converted ours = Convert(CapsOf(name), format, true);
  const Converted theirs = Convert(CapsOf(name), format, false);
  ASSERT_TRUE(ours.sample && theirs.sample);
  EXPECT_TRUE(ours.hasScreenConverter);
  EXPECT_FALSE(ours.hasOwnWork) << "videoconvert still converts";
  EXPECT_TRUE(theirs.hasOwnWork);
  const auto a = BytesOf(ours);
  const auto b = BytesOf(theirs);
  ASSERT_EQ(a.size(), b.size());
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    largest = std::max(largest, std::abs(a[i] - b[i]));
  }
  EXPECT_LE(largest, 1);
}

TEST_P(ScreenFormatTest, KeepsTimesAndTheFieldsThatAreNotConverted) {
  const auto [name, format] = GetParam();
  const Converted ours = Convert(CapsOf(name), format, true);
  ASSERT_TRUE(ours.sample);
  const GstBuffer* buffer = gst_sample_get_buffer(ours.sample.get());
  EXPECT_EQ(GST_BUFFER_PTS(buffer), 40 * GST_MSECOND);
  EXPECT_EQ(GST_BUFFER_DURATION(buffer), 20 * GST_MSECOND);
  const GstStructure* caps =
      gst_caps_get_structure(gst_sample_get_caps(ours.sample.get()), 0);
  gint rate = 0;
  gint perSeconds = 0;
  EXPECT_TRUE(
      gst_structure_get_fraction(caps, "framerate", &rate, &perSeconds));
  EXPECT_EQ(rate, 30);
  EXPECT_STREQ(gst_structure_get_string(caps, "colorimetry"), "1:3:5:1");
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ScreenFormatTest,
    testing::Values(std::pair("BGRx", GST_VIDEO_FORMAT_BGRx),
                    std::pair("BGRA", GST_VIDEO_FORMAT_BGRA),
                    std::pair("RGBx", GST_VIDEO_FORMAT_RGBx),
                    std::pair("RGBA", GST_VIDEO_FORMAT_RGBA),
                    std::pair("xRGB", GST_VIDEO_FORMAT_xRGB),
                    std::pair("ARGB", GST_VIDEO_FORMAT_ARGB),
                    std::pair("xBGR", GST_VIDEO_FORMAT_xBGR),
                    std::pair("ABGR", GST_VIDEO_FORMAT_ABGR)),
    [](const auto& test) { return test.param.first; });

TEST(ScreenConverterTest, OtherPicturesAreLeftToVideoconvert) {
  for (const auto& [name, format] : {std::pair("YUY2", GST_VIDEO_FORMAT_YUY2),
                                     std::pair("NV12", GST_VIDEO_FORMAT_NV12),
                                     std::pair("RGB", GST_VIDEO_FORMAT_RGB)}) {
    const Converted ours = Convert(CapsOf(name), format, true);
    const Converted theirs = Convert(CapsOf(name), format, false);
    ASSERT_TRUE(ours.sample && theirs.sample) << name;
    EXPECT_TRUE(ours.hasOwnWork) << name;
    EXPECT_EQ(BytesOf(ours), BytesOf(theirs)) << name;
  }
}

TEST(ScreenConverterTest, ALimitedRangeIsLeftToVideoconvert) {
  const Converted ours = Convert(CapsOf("BGRx") + ",colorimetry=2:1:5:1",
                                 GST_VIDEO_FORMAT_BGRx, true);
  ASSERT_TRUE(ours.sample);
  EXPECT_TRUE(ours.hasOwnWork);
}

// c81e32 as BGRx, and its luma in full-range BT.709.
constexpr std::array<std::uint8_t, 4> kColour = {0x32, 0x1e, 0xc8, 0};
constexpr double kLuma = 68;

// The head of a raw video pipeline for pictures that are not what their caps
// say.
class ConverterWithMetas : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(VectorRoutines(), nullptr);
    pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(
        gst_parse_launch("appsrc name=in format=time ! videoconvert ! "
                         "video/x-raw,format=I420,colorimetry=1:3:5:1 ! "
                         "appsink name=out sync=false",
                         nullptr))));
    InsertScreenConverters(pipeline_.get());
    in_ = FindElement(pipeline_.get(), "in");
    out_ = FindElement(pipeline_.get(), "out");
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  }
  void TearDown() override {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }

  void SetSize(int width, int height) {
    const GstCapsPtr caps(gst_caps_from_string(
        ("video/x-raw,format=BGRx,framerate=30/1,width=" +
         std::to_string(width) + ",height=" + std::to_string(height))
            .c_str()));
    gst_app_src_set_caps(GST_APP_SRC(in_.get()), caps.get());
  }

  // Of one colour and of so many bytes, that says of itself what the arguments
  // say.
  void Push(gsize size, GstVideoFormat format, guint width, guint height,
            gsize offset, gint stride) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    for (gsize at = 0; at < size; at += kColour.size()) {
      gst_buffer_fill(buffer, at, kColour.data(), kColour.size());
    }
    std::array<gsize, 4> offsets = {offset};
    std::array<gint, 4> strides = {stride};
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, format,
                                   width, height, 1, offsets.data(),
                                   strides.data());
    gst_app_src_push_buffer(GST_APP_SRC(in_.get()), buffer);
  }

  // The size and the mean luma of the next picture; nothing after the end.
  struct Result {
    int width = 0;
    int height = 0;
    double luma = -1;
  };
  Result Next() {
    const GstSamplePtr sample(gst_app_sink_try_pull_sample(
        GST_APP_SINK(out_.get()), 10 * GST_SECOND));
    if (!sample) return {};
    GstVideoInfo info;
    EXPECT_TRUE(
        gst_video_info_from_caps(&info, gst_sample_get_caps(sample.get())));
    const MappedVideoFrame frame(info, gst_sample_get_buffer(sample.get()),
                                 GST_MAP_READ);
    double sum = 0;
    for (int y = 0; y < info.height; ++y) {
      const auto* row =
          static_cast<const std::uint8_t*>(
              GST_VIDEO_FRAME_PLANE_DATA(&frame.get(), 0)) +
          std::ptrdiff_t{y} * GST_VIDEO_FRAME_PLANE_STRIDE(&frame.get(), 0);
      for (int x = 0; x < info.width; ++x) sum += row[x];
    }
    return {info.width, info.height, sum / info.width / info.height};
  }

  void EndStream() { gst_app_src_end_of_stream(GST_APP_SRC(in_.get())); }

  GstElementPtr pipeline_;
  GstElementPtr in_;
  GstElementPtr out_;
};

TEST_F(ConverterWithMetas, AnOldPictureUnderSmallerCapsHasTheSizeOfTheCaps) {
  SetSize(640, 360);
  Push(std::size_t{1280} * 720 * 4, GST_VIDEO_FORMAT_BGRx, 1280, 720, 0,
       1280 * 4);
  EndStream();
  const Result result = Next();
  EXPECT_EQ(result.width, 640);
  EXPECT_EQ(result.height, 360);
  EXPECT_NEAR(result.luma, kLuma, 1);
}

TEST_F(ConverterWithMetas, AnOffsetIsNoPartOfTheOrderOfColours) {
  SetSize(64, 32);
  Push(std::size_t{64} * 32 * 4 + 64, GST_VIDEO_FORMAT_BGRx, 64, 32, 64,
       64 * 4);
  EndStream();
  EXPECT_NEAR(Next().luma, kLuma, 1);
}

TEST_F(ConverterWithMetas, ABottomUpPictureIsReadFromItsLastRow) {
  SetSize(64, 32);
  Push(std::size_t{64} * 32 * 4, GST_VIDEO_FORMAT_BGRx, 64, 32, 64 * 31 * 4,
       -64 * 4);
  EndStream();
  EXPECT_NEAR(Next().luma, kLuma, 1);
}

TEST_F(ConverterWithMetas, WhatIsNotInItsBufferIsDroppedAndTheNextGoesOn) {
  SetSize(64, 32);
  constexpr std::size_t kSize = std::size_t{64} * 32 * 4;
  Push(kSize, GST_VIDEO_FORMAT_BGRx, 64, 32, 4, 64 * 4);
  Push(kSize, GST_VIDEO_FORMAT_BGRx, 64, 32, 0, 65 * 4);
  Push(kSize, GST_VIDEO_FORMAT_BGRx, 64, 32, 0, -64 * 4);
  Push(kSize, GST_VIDEO_FORMAT_RGBx, 64, 32, 0, 64 * 4);
  Push(kSize, GST_VIDEO_FORMAT_BGRx, 32, 32, 0, 64 * 4);
  Push(kSize, GST_VIDEO_FORMAT_BGRx, 64, 32, 0, 64 * 4);
  EndStream();
  EXPECT_NEAR(Next().luma, kLuma, 1);
  EXPECT_EQ(Next().width, 0) << "one picture of six";
}

}  // namespace
}  // namespace linux_capture
