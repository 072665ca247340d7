// Pictures of any size, format and layout, changing in mid-stream, through the
// module's own converter and scaler as a launched pipeline has them.
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "fuzz_input.h"
#include "launch_boundary/screen_converter.h"
#include "launch_boundary/screen_scaler.h"

namespace {

using linux_capture::AddBufferProbe;
using linux_capture::FindElement;
using linux_capture::GstBufferPtr;
using linux_capture::GstBusPtr;
using linux_capture::GstCapsPtr;
using linux_capture::GstElementPtr;
using linux_capture::GstPadPtr;
using linux_capture::InsertScreenConverters;
using linux_capture::PassingBuffer;
using linux_capture::ReplaceScalers;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;

constexpr std::array kFormats = {
    GST_VIDEO_FORMAT_BGRx, GST_VIDEO_FORMAT_BGRA, GST_VIDEO_FORMAT_RGBx,
    GST_VIDEO_FORMAT_RGBA, GST_VIDEO_FORMAT_xRGB, GST_VIDEO_FORMAT_ARGB,
    GST_VIDEO_FORMAT_xBGR, GST_VIDEO_FORMAT_ABGR, GST_VIDEO_FORMAT_I420};

constexpr guint kLongestEdge = 16'384;
constexpr guint kMostPixels = 1U << 15U;

GstVideoFormat TakeFormat(FuzzInput& input) {
  return kFormats[input.Take<std::uint8_t>() % kFormats.size()];
}

struct Size {
  guint width = 1;
  guint height = 1;
};

// Long in one dimension at most, so that a run stays short.
Size TakeSize(FuzzInput& input) {
  const guint width = 1 + input.Take<std::uint16_t>() % kLongestEdge;
  const guint most = std::max(1U, std::min(kLongestEdge, kMostPixels / width));
  return {width, 1 + input.Take<std::uint16_t>() % most};
}

GstVideoInfo InfoFor(GstVideoFormat format, Size size) {
  GstVideoInfo info;
  gst_video_info_init(&info);
  gst_video_info_set_format(&info, format, size.width, size.height);
  return info;
}

// As a branch of a raw pipeline has it, driven from outside.
class BranchUnderTest {
 public:
  BranchUnderTest() {
    gst_init(nullptr, nullptr);
    GstElement* launched = gst_parse_launch(
        "identity name=in ! videoconvert ! "
        "video/x-raw,format=I420,colorimetry=1:3:5:1 ! "
        "videoscale method=bilinear2 ! capsfilter name=branch ! "
        "fakesink name=out sync=false async=false",
        nullptr);
    pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(launched)));
    InsertScreenConverters(pipeline_.get());
    ReplaceScalers(pipeline_.get());
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_flushing(bus.get(), TRUE);
    const GstElementPtr in = FindElement(pipeline_.get(), "in");
    sink_.reset(gst_element_get_static_pad(in.get(), "sink"));
    branch_ = FindElement(pipeline_.get(), "branch");
    const GstElementPtr out = FindElement(pipeline_.get(), "out");
    const GstPadPtr outPad(gst_element_get_static_pad(out.get(), "sink"));
    AddBufferProbe(outPad.get(), [this](GstPad* pad, PassingBuffer& picture) {
      CheckDelivered(pad, picture.get());
      return GST_PAD_PROBE_OK;
    });
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    gst_pad_send_event(sink_.get(), gst_event_new_stream_start("fuzz"));
  }

  void SetSource(const GstVideoInfo& info) {
    GstVideoInfo copy = info;
    copy.fps_n = 30;
    copy.fps_d = 1;
    const GstCapsPtr caps(gst_video_info_to_caps(&copy));
    gst_pad_send_event(sink_.get(), gst_event_new_caps(caps.get()));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_send_event(sink_.get(), gst_event_new_segment(&segment));
  }

  void SetBranch(Size size) {
    const GstCapsPtr caps(gst_caps_new_simple(
        "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
        static_cast<gint>(size.width), "height", G_TYPE_INT,
        static_cast<gint>(size.height), nullptr));
    g_object_set(branch_.get(), "caps", caps.get(), nullptr);
  }

  // Whether a picture came out.
  bool Push(GstBufferPtr buffer) {
    delivered_ = 0;
    static_cast<void>(gst_pad_chain(sink_.get(), buffer.release()));
    return delivered_ == 1;
  }

 private:
  void CheckDelivered(GstPad* pad, GstBuffer* picture) {
    ++delivered_;
    const GstCapsPtr caps(gst_pad_get_current_caps(pad));
    GstVideoInfo info;
    Require(caps && gst_video_info_from_caps(&info, caps.get()) != FALSE,
            "a delivered picture has caps");
    Require(GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_I420,
            "a delivered picture is I420");
    Require(gst_buffer_get_size(picture) > 0, "a delivered picture is there");
  }

  GstElementPtr pipeline_;
  GstElementPtr branch_;
  GstPadPtr sink_;
  int delivered_ = 0;
};

// Exactly as much memory as the picture has, so that the byte behind it is
// watched.
GstBufferPtr MakeMemory(gsize size) {
  return GstBufferPtr(gst_buffer_new_wrapped(g_malloc0(size), size));
}

// What a source says of the picture's place, true or not.
void AddAnyMeta(FuzzInput& input, const GstVideoInfo& info, GstBuffer* buffer) {
  std::array<gsize, GST_VIDEO_MAX_PLANES> offsets{};
  std::array<gint, GST_VIDEO_MAX_PLANES> strides{};
  const bool isOther = input.TakeBool();
  const GstVideoInfo told =
      isOther ? InfoFor(TakeFormat(input), TakeSize(input)) : info;
  for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&told); ++plane) {
    const auto kind = input.Take<std::uint8_t>();
    offsets[plane] = told.offset[plane];
    strides[plane] = told.stride[plane];
    if ((kind & 1U) != 0) {
      offsets[plane] += static_cast<gsize>(std::int64_t{input.TakeInt()});
    }
    if ((kind & 2U) != 0) strides[plane] = input.TakeInt();
    if ((kind & 4U) != 0) {
      // Bottom-up, as it should be.
      offsets[plane] += static_cast<gsize>(told.stride[plane]) *
                        static_cast<gsize>(std::max(told.height, 1) - 1);
      strides[plane] = -strides[plane];
    }
  }
  gst_buffer_add_video_meta_full(
      buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&told),
      static_cast<guint>(told.width), static_cast<guint>(told.height),
      GST_VIDEO_INFO_N_PLANES(&told), offsets.data(), strides.data());
}

}  // namespace

// GLib keeps tables for ever, which look like leaks.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  static BranchUnderTest branch;
  FuzzInput input(data, size);
  GstVideoInfo info = InfoFor(TakeFormat(input), TakeSize(input));
  branch.SetSource(info);
  branch.SetBranch(TakeSize(input));
  for (int picture = 0; picture < 4; ++picture) {
    const auto change = input.Take<std::uint8_t>();
    if ((change & 1U) != 0) {
      info = InfoFor(TakeFormat(input), TakeSize(input));
      branch.SetSource(info);
    }
    if ((change & 2U) != 0) branch.SetBranch(TakeSize(input));
    const gsize more = input.TakeBool() ? input.Take<std::uint16_t>() : 0;
    const gsize less = input.TakeBool() ? input.Take<std::uint16_t>() : 0;
    const gsize whole = info.size + more;
    GstBufferPtr buffer = MakeMemory(less < whole ? whole - less : 1);
    const bool isPlain = (change & 4U) == 0;
    if (!isPlain) AddAnyMeta(input, info, buffer.get());
    const bool isWhole = more == 0 && less == 0;
    const bool isDelivered = branch.Push(std::move(buffer));
    Require(isDelivered || !isPlain || !isWhole,
            "a picture that is as its caps say is delivered");
  }
  return 0;
}
