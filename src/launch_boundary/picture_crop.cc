#include "launch_boundary/picture_crop.h"

#include <gst/video/video.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

struct CropArea {
  guint x = 0;
  guint y = 0;
  guint width = 0;
  guint height = 0;
};

// Used by the one thread that streams at the pad.
struct Cropping {
  GstCapsPtr sourceCaps;  // what the source has announced
  GstVideoInfo sourceInfo{};
  bool isKnown = false;  // it is ordinary video in ordinary memory
  GstCapsPtr ownCaps;    // what was announced here in its place
};

void ReadSourceCaps(GstPad* pad, Cropping& cropping) {
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps || caps.get() == cropping.sourceCaps.get() ||
      caps.get() == cropping.ownCaps.get()) {
    return;
  }
  cropping.ownCaps.reset();
  cropping.isKnown =
      gst_caps_features_is_equal(gst_caps_get_features(caps.get(), 0),
                                 GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY) !=
          FALSE &&
      gst_video_info_from_caps(&cropping.sourceInfo, caps.get()) != FALSE;
  cropping.sourceCaps = std::move(caps);
}

// The part that the buffer names, as far as it lies in the picture; none where
// it names the whole picture or nothing of it.
std::optional<CropArea> AreaOf(GstBuffer* buffer, const GstVideoInfo& info) {
  const GstVideoCropMeta* meta = gst_buffer_get_video_crop_meta(buffer);
  if (meta == nullptr) return std::nullopt;
  const auto width = static_cast<guint>(info.width);
  const auto height = static_cast<guint>(info.height);
  if (meta->x >= width || meta->y >= height || meta->width == 0 ||
      meta->height == 0) {
    return std::nullopt;
  }
  const CropArea area = {.x = meta->x,
                         .y = meta->y,
                         .width = std::min(meta->width, width - meta->x),
                         .height = std::min(meta->height, height - meta->y)};
  if (area.width == width && area.height == height) return std::nullopt;
  return area;
}

GstCapsPtr CapsWithSize(const GstCaps* caps, const CropArea& area) {
  GstCapsPtr sized(gst_caps_copy(caps));
  gst_caps_set_simple(sized.get(), "width", G_TYPE_INT,
                      static_cast<gint>(area.width), "height", G_TYPE_INT,
                      static_cast<gint>(area.height), nullptr);
  return sized;
}

// Tells what follows of the size, where that is not the one it knows.
void Announce(GstPad* pad, const std::optional<CropArea>& area,
              Cropping& cropping) {
  GstCapsPtr wanted = area
                          ? CapsWithSize(cropping.sourceCaps.get(), *area)
                          : GstCapsPtr(gst_caps_ref(cropping.sourceCaps.get()));
  const GstCapsPtr current(gst_pad_get_current_caps(pad));
  if (gst_caps_is_equal(current.get(), wanted.get()) != FALSE) return;
  gst_pad_push_event(pad, gst_event_new_caps(wanted.get()));
  cropping.ownCaps = std::move(wanted);
}

// Where a plane's part begins. Colours that several pixels share begin at the
// pixel before.
gsize OffsetInPlane(const GstVideoInfo& info, guint plane, gint stride,
                    const CropArea& area) {
  for (guint i = 0; i < GST_VIDEO_INFO_N_COMPONENTS(&info); ++i) {
    if (std::cmp_not_equal(GST_VIDEO_INFO_COMP_PLANE(&info, i), plane)) {
      continue;
    }
    const auto row = static_cast<gsize>(
        area.y >> GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, i));
    const auto column = static_cast<gsize>(
        area.x >> GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, i));
    return row * static_cast<gsize>(stride) +
           column * static_cast<gsize>(GST_VIDEO_INFO_COMP_PSTRIDE(&info, i));
  }
  return 0;
}

void Crop(GstBuffer* buffer, const GstVideoInfo& info, const CropArea& area) {
  GstVideoMeta* meta = gst_buffer_get_video_meta(buffer);
  if (meta == nullptr) {
    GstVideoInfo whole = info;
    meta = gst_buffer_add_video_meta_full(
        buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&whole),
        static_cast<guint>(whole.width), static_cast<guint>(whole.height),
        GST_VIDEO_INFO_N_PLANES(&whole), whole.offset, whole.stride);
  }
  for (guint plane = 0; plane < meta->n_planes; ++plane) {
    meta->offset[plane] +=
        OffsetInPlane(info, plane, meta->stride[plane], area);
  }
  meta->width = area.width;
  meta->height = area.height;
}

void CropPicture(GstPad* pad, PassingBuffer& passing, Cropping& cropping) {
  ReadSourceCaps(pad, cropping);
  if (!cropping.isKnown) return;
  const auto area = AreaOf(passing.get(), cropping.sourceInfo);
  Announce(pad, area, cropping);
  if (!area) return;
  GstBuffer* const buffer = passing.MakeWritableAndKeep();
  Crop(buffer, cropping.sourceInfo, *area);
  gst_buffer_remove_meta(
      buffer, gst_buffer_get_meta(buffer, GST_VIDEO_CROP_META_API_TYPE));
}

}  // namespace

void CropToWindows(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    const GstPadPtr peer(pad ? gst_pad_get_peer(pad.get()) : nullptr);
    if (!peer) return;
    const GstElementPtr queue(gst_pad_get_parent_element(peer.get()));
    if (queue) CropBehind(queue.get());
  });
}

void CropBehind(GstElement* element) {
  const GstPadPtr pad(gst_element_get_static_pad(element, "src"));
  if (!pad) return;
  AddBufferProbe(pad.get(), [cropping = Cropping{}](
                                GstPad* from, PassingBuffer& buffer) mutable {
    CropPicture(from, buffer, cropping);
    return GST_PAD_PROBE_OK;
  });
}

}  // namespace linux_capture
