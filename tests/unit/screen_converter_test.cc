#include "launch_boundary/screen_converter.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/gst_handles.h"
#include "launch_boundary/colour_rounding.h"
#include "pixels/vector_instructions.h"

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
  void SetUp() override { ASSERT_TRUE(HasVectorInstructions()); }
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

TEST(ScreenConverterTest, TheEnvironmentCanSwitchItOff) {
  ASSERT_EQ(setenv("LINUX_CAPTURE_SCREEN_CONVERTER", "off", 1), 0);
  const Converted ours = Convert(CapsOf("BGRx"), GST_VIDEO_FORMAT_BGRx, true);
  unsetenv("LINUX_CAPTURE_SCREEN_CONVERTER");
  ASSERT_TRUE(ours.sample);
  EXPECT_FALSE(ours.hasScreenConverter);
}

}  // namespace
}  // namespace linux_capture
