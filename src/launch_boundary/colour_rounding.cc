#include "launch_boundary/colour_rounding.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

struct VideoConverterDeleter {
  void operator()(GstVideoConverter* converter) const noexcept {
    gst_video_converter_free(converter);
  }
};
using VideoConverterPtr =
    std::unique_ptr<GstVideoConverter, VideoConverterDeleter>;

// Every colour of a 6x6x6 cube as one flat square, so that neither the halved
// chroma nor its filter mixes two of them.
constexpr int kLevels = 6;
constexpr int kLevelStep = 255 / (kLevels - 1);
constexpr int kSquare = 8;
constexpr int kCubeWidth = kLevels * kLevels * kSquare;
constexpr int kCubeHeight = kLevels * kSquare;

std::array<std::uint8_t, 3> CubeColour(int column, int row) {
  return {static_cast<std::uint8_t>(column / kLevels * kLevelStep),
          static_cast<std::uint8_t>(column % kLevels * kLevelStep),
          static_cast<std::uint8_t>(row * kLevelStep)};
}

bool IsCorrectable(const GstVideoInfo& in, const GstVideoInfo& out) {
  const GstVideoColorimetry& colorimetry = out.colorimetry;
  return GST_VIDEO_INFO_IS_RGB(&in) &&
         in.finfo->unpack_format == GST_VIDEO_FORMAT_ARGB &&
         GST_VIDEO_INFO_FORMAT(&out) == GST_VIDEO_FORMAT_I420 &&
         colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255 &&
         colorimetry.matrix == GST_VIDEO_COLOR_MATRIX_BT709;
}

GstVideoInfo ResizedInfo(const GstVideoInfo& info) {
  GstVideoInfo resized;
  gst_video_info_init(&resized);
  gst_video_info_set_format(&resized, GST_VIDEO_INFO_FORMAT(&info), kCubeWidth,
                            kCubeHeight);
  resized.colorimetry = info.colorimetry;
  resized.chroma_site = info.chroma_site;
  return resized;
}

void DrawCube(GstVideoFrame& frame) {
  const GstVideoFormatInfo* format = frame.info.finfo;
  std::vector<std::uint8_t> line(std::size_t{kCubeWidth} * 4);
  for (int y = 0; y < kCubeHeight; ++y) {
    for (int x = 0; x < kCubeWidth; ++x) {
      const auto colour = CubeColour(x / kSquare, y / kSquare);
      std::uint8_t* pixel = &line[static_cast<std::size_t>(x) * 4];
      pixel[0] = 255;
      std::copy(colour.begin(), colour.end(), pixel + 1);
    }
    format->pack_func(format, GST_VIDEO_PACK_FLAG_NONE, line.data(), 0,
                      frame.data, frame.info.stride, frame.info.chroma_site, y,
                      kCubeWidth);
  }
}

int SampleAt(const GstVideoFrame& frame, guint plane, int x, int y) {
  const auto* data = static_cast<const std::uint8_t*>(
      GST_VIDEO_FRAME_PLANE_DATA(&frame, plane));
  return data[static_cast<std::ptrdiff_t>(y) *
                  GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane) +
              x];
}

PlaneCorrection MeanError(const GstVideoFrame& frame) {
  double y = 0;
  double u = 0;
  double v = 0;
  for (int row = 0; row < kLevels; ++row) {
    for (int column = 0; column < kLevels * kLevels; ++column) {
      const auto [red, green, blue] = CubeColour(column, row);
      const double luma = 0.2126 * red + 0.7152 * green + 0.0722 * blue;
      const int centreX = column * kSquare + kSquare / 2;
      const int centreY = row * kSquare + kSquare / 2;
      y += luma - SampleAt(frame, 0, centreX, centreY);
      u += (blue - luma) / 1.8556 + 128 -
           SampleAt(frame, 1, centreX / 2, centreY / 2);
      v += (red - luma) / 1.5748 + 128 -
           SampleAt(frame, 2, centreX / 2, centreY / 2);
    }
  }
  constexpr double kColours = kLevels * kLevels * kLevels;
  const auto rounded = [](double sum) {
    return static_cast<int>(std::lround(sum / kColours));
  };
  return {rounded(y), rounded(u), rounded(v)};
}

void AddToPlane(std::uint8_t* data, int stride, int width, int height,
                int amount) {
  for (int row = 0; row < height; ++row) {
    std::uint8_t* line = data + static_cast<std::ptrdiff_t>(row) * stride;
    for (int x = 0; x < width; ++x) {
      line[x] = static_cast<std::uint8_t>(std::clamp(line[x] + amount, 0, 255));
    }
  }
}

// What the probe on videoconvert remembers between buffers; used by the one
// thread that streams there.
struct RoundingProbe {
  GstCapsPtr outCaps;
  GstVideoInfo outInfo{};
  PlaneCorrection correction;
};

void UpdateForCaps(GstPad* pad, RoundingProbe& probe) {
  GstCapsPtr outCaps(gst_pad_get_current_caps(pad));
  if (!outCaps || (probe.outCaps && outCaps.get() == probe.outCaps.get())) {
    return;
  }
  probe.outCaps = std::move(outCaps);
  probe.correction = {};
  const GstElementPtr converter(gst_pad_get_parent_element(pad));
  const GstPadPtr sink(gst_element_get_static_pad(converter.get(), "sink"));
  const GstCapsPtr inCaps(gst_pad_get_current_caps(sink.get()));
  GstVideoInfo in;
  gst_video_info_init(&in);
  if (!inCaps || gst_video_info_from_caps(&in, inCaps.get()) == FALSE ||
      gst_video_info_from_caps(&probe.outInfo, probe.outCaps.get()) == FALSE) {
    // Untested: the converter around it takes pictures alone.
    return;
  }
  probe.correction = MeasureConversionRounding(in, probe.outInfo);
}

void CorrectPicture(GstPad* pad, PassingBuffer& picture, RoundingProbe& probe) {
  UpdateForCaps(pad, probe);
  if (probe.correction == PlaneCorrection{}) return;
  // Fresh from the converter, so nobody else holds it and nothing is copied.
  MappedVideoFrame frame(probe.outInfo, picture.MakeWritable(),
                         static_cast<GstMapFlags>(GST_MAP_READWRITE));
  if (frame.ok()) ApplyPlaneCorrection(probe.correction, frame.get());
}

}  // namespace

PlaneCorrection MeasureConversionRounding(const GstVideoInfo& in,
                                          const GstVideoInfo& out) {
  if (!IsCorrectable(in, out)) return {};
  GstVideoInfo from = ResizedInfo(in);
  GstVideoInfo to = ResizedInfo(out);
  const VideoConverterPtr converter(
      gst_video_converter_new(&from, &to, nullptr));
  const GstBufferPtr source(
      gst_buffer_new_allocate(nullptr, from.size, nullptr));
  const GstBufferPtr target(gst_buffer_new_allocate(nullptr, to.size, nullptr));
  if (!converter || !source || !target) return {};
  MappedVideoFrame sourceFrame(from, source.get(),
                               static_cast<GstMapFlags>(GST_MAP_READWRITE));
  MappedVideoFrame targetFrame(to, target.get(),
                               static_cast<GstMapFlags>(GST_MAP_READWRITE));
  if (!sourceFrame.ok() || !targetFrame.ok()) return {};
  DrawCube(sourceFrame.get());
  gst_video_converter_frame(converter.get(), &sourceFrame.get(),
                            &targetFrame.get());
  return MeanError(targetFrame.get());
}

void ApplyPlaneCorrection(const PlaneCorrection& correction,
                          GstVideoFrame& frame) {
  const std::array<int, 3> amounts = {correction.y, correction.u, correction.v};
  for (guint plane = 0; plane < amounts.size(); ++plane) {
    if (amounts[plane] == 0) continue;
    AddToPlane(
        static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, plane)),
        GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane),
        GST_VIDEO_FRAME_COMP_WIDTH(&frame, plane),
        GST_VIDEO_FRAME_COMP_HEIGHT(&frame, plane), amounts[plane]);
  }
}

void CorrectConversionRounding(GstElement* pipeline) {
  ForEachElementOf(pipeline, "videoconvert", [](GstElement* converter) {
    const GstPadPtr pad(gst_element_get_static_pad(converter, "src"));
    AddBufferProbe(pad.get(),
                   [probe = RoundingProbe{}](GstPad* sourcePad,
                                             PassingBuffer& picture) mutable {
                     CorrectPicture(sourcePad, picture, probe);
                     return GST_PAD_PROBE_OK;
                   });
  });
}

}  // namespace linux_capture
