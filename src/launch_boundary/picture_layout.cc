#include "launch_boundary/picture_layout.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include "base/debug_category.h"
#include "base/object_data.h"
#include "base/stage_log.h"

namespace linux_capture {
namespace {

constexpr const char* kDroppedKey = "linux-capture-dropped-pictures";

struct PlaneExtent {
  std::int64_t rows = 0;
  std::int64_t rowBytes = 0;
};

// Formats that are not made of rows have no extents here.
bool HasPlainRows(const GstVideoFormatInfo* format) {
  if (GST_VIDEO_FORMAT_INFO_IS_TILED(format)) return false;
  for (guint i = 0; i < GST_VIDEO_FORMAT_INFO_N_COMPONENTS(format); ++i) {
    if (GST_VIDEO_FORMAT_INFO_PSTRIDE(format, i) <= 0) return false;
  }
  return true;
}

std::array<PlaneExtent, GST_VIDEO_MAX_PLANES> ExtentsOf(
    const GstVideoInfo& info) {
  std::array<PlaneExtent, GST_VIDEO_MAX_PLANES> extents{};
  if (!HasPlainRows(info.finfo)) return extents;
  for (guint i = 0; i < GST_VIDEO_INFO_N_COMPONENTS(&info); ++i) {
    PlaneExtent& extent = extents[GST_VIDEO_INFO_COMP_PLANE(&info, i)];
    extent.rows = std::max<std::int64_t>(extent.rows,
                                         GST_VIDEO_INFO_COMP_HEIGHT(&info, i));
    extent.rowBytes = std::max(
        extent.rowBytes, std::int64_t{GST_VIDEO_INFO_COMP_WIDTH(&info, i)} *
                             GST_VIDEO_INFO_COMP_PSTRIDE(&info, i));
  }
  return extents;
}

bool IsInside(const PlaneLayout& plane, const PlaneExtent& extent,
              std::int64_t size) {
  if (extent.rows <= 0) return true;
  const std::int64_t first = plane.offset;
  const std::int64_t last = first + (extent.rows - 1) * plane.stride;
  return std::min(first, last) >= 0 &&
         std::max(first, last) + extent.rowBytes <= size;
}

}  // namespace

std::optional<PictureLayout> LayoutOf(GstBuffer* buffer,
                                      const GstVideoInfo& negotiated) {
  const GstVideoMeta* meta = gst_buffer_get_video_meta(buffer);
  const guint planes = GST_VIDEO_INFO_N_PLANES(&negotiated);
  if (meta != nullptr && (meta->format != GST_VIDEO_INFO_FORMAT(&negotiated) ||
                          meta->n_planes != planes ||
                          std::int64_t{meta->width} < negotiated.width ||
                          std::int64_t{meta->height} < negotiated.height)) {
    return std::nullopt;
  }
  const auto size = static_cast<std::int64_t>(gst_buffer_get_size(buffer));
  const auto extents = ExtentsOf(negotiated);
  PictureLayout layout{};
  for (guint i = 0; i < planes; ++i) {
    const gsize offset =
        meta != nullptr ? meta->offset[i] : negotiated.offset[i];
    if (offset > static_cast<gsize>(size)) return std::nullopt;
    layout[i] = {static_cast<std::ptrdiff_t>(offset),
                 meta != nullptr ? meta->stride[i] : negotiated.stride[i]};
    if (!IsInside(layout[i], extents[i], size)) return std::nullopt;
  }
  return layout;
}

std::string DescribeMisfit(GstBuffer* buffer, const GstVideoInfo& negotiated) {
  const auto sizeText = [](std::int64_t width, std::int64_t height) {
    return std::to_string(width) + "x" + std::to_string(height);
  };
  const GstVideoMeta* meta = gst_buffer_get_video_meta(buffer);
  std::string text;
  if (meta != nullptr) {
    text = std::string(gst_video_format_to_string(meta->format)) + " " +
           sizeText(meta->width, meta->height) + " in ";
  }
  return text + std::to_string(gst_buffer_get_size(buffer)) + " bytes for " +
         gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&negotiated)) + " " +
         sizeText(negotiated.width, negotiated.height);
}

void ReportDroppedPicture(GstObject* object, GstBuffer* buffer,
                          const GstVideoInfo& negotiated) {
  auto* count = ObjectData<std::uint64_t>(object, kDroppedKey);
  if (count == nullptr) {
    SetObjectData(object, kDroppedKey, std::make_unique<std::uint64_t>(0));
    count = ObjectData<std::uint64_t>(object, kDroppedKey);
    LogCaptureStage("pipeline:dropped-picture=" +
                    DescribeMisfit(buffer, negotiated));
  }
  ++*count;
  GST_CAT_WARNING_OBJECT(DebugCategory(), object,
                         "dropped picture %" G_GUINT64_FORMAT ": %s", *count,
                         DescribeMisfit(buffer, negotiated).c_str());
}

}  // namespace linux_capture
