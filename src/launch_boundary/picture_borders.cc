#include "launch_boundary/picture_borders.h"

#include <algorithm>
#include <cstddef>

#include "base/gst_handles.h"
#include "launch_boundary/picture_layout.h"

namespace linux_capture {
namespace {

// Pixels of I420 share their colour with a neighbour, so videoscale begins at
// even places alone.
gint EvenStart(gint border) { return border / 2 / 2 * 2; }

}  // namespace

std::optional<PictureArea> AreaBetweenGreyBorders(const GstVideoInfo& in,
                                                  const GstVideoInfo& out) {
  if (GST_VIDEO_INFO_FORMAT(&out) != GST_VIDEO_FORMAT_I420 ||
      out.colorimetry.range != GST_VIDEO_COLOR_RANGE_0_255) {
    return std::nullopt;
  }
  gint wide = 0;
  gint high = 0;
  gint shapeWide = 0;
  gint shapeHigh = 0;
  if (gst_util_fraction_multiply(in.width, in.height, in.par_n, in.par_d, &wide,
                                 &high) == FALSE ||
      gst_util_fraction_multiply(wide, high, out.par_d, out.par_n, &shapeWide,
                                 &shapeHigh) == FALSE) {
    return std::nullopt;
  }
  const auto scaled = [](gint length, gint by, gint per) {
    return static_cast<gint>(
        gst_util_uint64_scale_int(static_cast<guint64>(length), by, per));
  };
  PictureArea area{.width = out.width,
                   .height = scaled(out.width, shapeHigh, shapeWide)};
  if (area.height > out.height) {
    area.height = out.height;
    area.width = scaled(out.height, shapeWide, shapeHigh);
  }
  if (area.width == out.width && area.height == out.height) return std::nullopt;
  area.left = EvenStart(out.width - area.width);
  area.top = EvenStart(out.height - area.height);
  return area;
}

void BlackenBorders(GstBuffer* buffer, const GstVideoInfo& info,
                    const PictureArea& area) {
  const auto layout = LayoutOf(buffer, info);
  const WritableBuffer bytes(buffer);
  if (!layout || !bytes.ok()) return;
  const auto [offset, stride] = layout->front();
  for (gint y = 0; y < info.height; ++y) {
    guint8* const row = bytes.data() + offset + y * stride;
    guint8* const end = row + info.width;
    if (y < area.top || y >= area.top + area.height) {
      std::fill(row, end, guint8{0});
      continue;
    }
    std::fill(row, row + area.left, guint8{0});
    std::fill(row + area.left + area.width, end, guint8{0});
  }
}

}  // namespace linux_capture
