#include "launch_boundary/colour_rounding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

constexpr int kSize = 32;

GstVideoInfo InfoOf(GstVideoFormat format, const char* colorimetry) {
  GstVideoInfo info;
  gst_video_info_init(&info);
  gst_video_info_set_format(&info, format, kSize, kSize);
  gst_video_colorimetry_from_string(&info.colorimetry, colorimetry);
  return info;
}

GstVideoInfo Screen() { return InfoOf(GST_VIDEO_FORMAT_BGRx, "sRGB"); }
GstVideoInfo FullRange() { return InfoOf(GST_VIDEO_FORMAT_I420, "1:3:5:1"); }

struct BufferDeleter {
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using BufferPtr = std::unique_ptr<GstBuffer, BufferDeleter>;

struct ConverterDeleter {
  void operator()(GstVideoConverter* converter) const {
    gst_video_converter_free(converter);
  }
};

constexpr auto kReadWrite = static_cast<GstMapFlags>(GST_MAP_READWRITE);

std::uint8_t* PlaneOf(MappedVideoFrame& frame, guint plane) {
  return static_cast<std::uint8_t*>(
      GST_VIDEO_FRAME_PLANE_DATA(&frame.get(), plane));
}

// A flat picture of one colour, converted by GStreamer and corrected.
std::array<int, 3> ConvertedAndCorrected(
    const std::array<std::uint8_t, 3>& rgb) {
  GstVideoInfo in = Screen();
  GstVideoInfo out = FullRange();
  const std::unique_ptr<GstVideoConverter, ConverterDeleter> converter(
      gst_video_converter_new(&in, &out, nullptr));
  const BufferPtr source(gst_buffer_new_allocate(nullptr, in.size, nullptr));
  const BufferPtr target(gst_buffer_new_allocate(nullptr, out.size, nullptr));
  MappedVideoFrame sourceFrame(in, source.get(), kReadWrite);
  MappedVideoFrame targetFrame(out, target.get(), kReadWrite);
  std::uint8_t* pixels = PlaneOf(sourceFrame, 0);
  for (int i = 0; i < kSize * kSize; ++i) {
    const std::array<std::uint8_t, 4> bgrx = {rgb[2], rgb[1], rgb[0], 255};
    std::memcpy(pixels + static_cast<std::ptrdiff_t>(i) * 4, bgrx.data(), 4);
  }
  gst_video_converter_frame(converter.get(), &sourceFrame.get(),
                            &targetFrame.get());
  ApplyPlaneCorrection(MeasureConversionRounding(in, out), targetFrame.get());
  return {PlaneOf(targetFrame, 0)[0], PlaneOf(targetFrame, 1)[0],
          PlaneOf(targetFrame, 2)[0]};
}

TEST(ColourRoundingTest, CorrectedColoursLieWithinOneStepOfTheExactOnes) {
  const std::vector<std::array<std::uint8_t, 3>> colours = {
      {0xc8, 0x1e, 0x32}, {0x1e, 0xa0, 0x3c}, {0x28, 0x50, 0xc8},
      {0xdc, 0xb4, 0x14}, {0x80, 0x80, 0x80}, {0xff, 0xff, 0xff},
      {0x00, 0x00, 0x00}, {0x20, 0xb4, 0xb4}};
  for (const auto& rgb : colours) {
    const double luma = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
    const auto [y, u, v] = ConvertedAndCorrected(rgb);
    EXPECT_LE(std::abs(luma - y), 1.0);
    EXPECT_LE(std::abs((rgb[2] - luma) / 1.8556 + 128 - u), 1.0);
    EXPECT_LE(std::abs((rgb[0] - luma) / 1.5748 + 128 - v), 1.0);
  }
}

TEST(ColourRoundingTest, AYuvSourceIsLeftAlone) {
  EXPECT_EQ(MeasureConversionRounding(InfoOf(GST_VIDEO_FORMAT_NV12, "1:3:5:1"),
                                      FullRange()),
            PlaneCorrection{});
}

TEST(ColourRoundingTest, OtherTargetsThanFullRangeBt709AreLeftAlone) {
  EXPECT_EQ(MeasureConversionRounding(Screen(),
                                      InfoOf(GST_VIDEO_FORMAT_I420, "bt709")),
            PlaneCorrection{});
}

TEST(ColourRoundingTest, TheCorrectionSaturatesInsteadOfWrapping) {
  const GstVideoInfo info = FullRange();
  const BufferPtr buffer(gst_buffer_new_allocate(nullptr, info.size, nullptr));
  MappedVideoFrame frame(info, buffer.get(), kReadWrite);
  PlaneOf(frame, 0)[0] = 255;
  PlaneOf(frame, 0)[1] = 254;
  PlaneOf(frame, 1)[0] = 0;
  PlaneOf(frame, 2)[0] = 7;
  ApplyPlaneCorrection({1, -1, 0}, frame.get());
  EXPECT_EQ(PlaneOf(frame, 0)[0], 255);
  EXPECT_EQ(PlaneOf(frame, 0)[1], 255);
  EXPECT_EQ(PlaneOf(frame, 1)[0], 0);
  EXPECT_EQ(PlaneOf(frame, 2)[0], 7);
}

}  // namespace
}  // namespace linux_capture
