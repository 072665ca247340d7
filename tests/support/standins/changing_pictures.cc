#include "changing_pictures.h"

#include <gst/video/video.h>

#include <array>
#include <cstddef>
#include <cstdlib>

namespace linux_capture::standins {
namespace {

struct Size {
  guint width;
  guint height;
};

constexpr Size kFull = {640, 360};
constexpr Size kHalf = {320, 180};

struct Form {
  Size told;  // in the caps
  GstVideoFormat format = GST_VIDEO_FORMAT_BGRx;
  Size painted;      // in the picture
  gsize before = 0;  // bytes in front of it
  guint beside = 0;  // pixels right of each row
  bool isBottomUp = false;
  gsize missing = 0;  // bytes at the end
};

constexpr std::array<Form, 9> kForms = {{
    {.told = kFull, .painted = kFull},
    // The last picture again, before there is one of the new size.
    {.told = kHalf, .painted = kFull},
    {.told = kHalf, .painted = kHalf},
    {.told = kHalf, .painted = kHalf, .before = 4096},
    {.told = kHalf, .painted = kHalf, .beside = 24},
    {.told = kHalf, .painted = kHalf, .isBottomUp = true},
    {.told = kHalf, .format = GST_VIDEO_FORMAT_RGBx, .painted = kHalf},
    // Less memory than it tells of, and a picture too small for its caps.
    {.told = kFull, .painted = kFull, .missing = 640},
    {.told = kFull, .painted = kHalf},
}};

constexpr std::uint32_t kPicturesOfEach = 4;

const Form& FormOf(std::uint32_t number) {
  return kForms[number / kPicturesOfEach % kForms.size()];
}

}  // namespace

GstCapsPtr ChangingCaps(std::uint32_t number, int rate) {
  const Form& form = FormOf(number);
  return GstCapsPtr(gst_caps_new_simple(
      "video/x-raw", "format", G_TYPE_STRING,
      gst_video_format_to_string(form.format), "width", G_TYPE_INT,
      static_cast<gint>(form.told.width), "height", G_TYPE_INT,
      static_cast<gint>(form.told.height), "framerate", GST_TYPE_FRACTION, rate,
      1, nullptr));
}

GstBufferPtr ChangingPicture(std::uint32_t number) {
  const Form& form = FormOf(number);
  const std::array<guint8, 4> colour =
      form.format == GST_VIDEO_FORMAT_BGRx
          ? std::array<guint8, 4>{0x32, 0x1e, 0xc8, 0}
          : std::array<guint8, 4>{0xc8, 0x1e, 0x32, 0};
  const gsize row = gsize{form.painted.width + form.beside} * colour.size();
  const gsize size = form.before + row * form.painted.height - form.missing;
  GstBufferPtr buffer(gst_buffer_new_wrapped(g_malloc0(size), size));
  for (gsize at = form.before; at + colour.size() <= size;
       at += colour.size()) {
    gst_buffer_fill(buffer.get(), at, colour.data(), colour.size());
  }
  std::array<gsize, GST_VIDEO_MAX_PLANES> offsets = {form.before};
  std::array<gint, GST_VIDEO_MAX_PLANES> strides = {static_cast<gint>(row)};
  if (form.isBottomUp) {
    offsets[0] += row * (form.painted.height - 1);
    strides[0] = -strides[0];
  }
  gst_buffer_add_video_meta_full(
      buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, form.format, form.painted.width,
      form.painted.height, 1, offsets.data(), strides.data());
  return buffer;
}

}  // namespace linux_capture::standins
