#include "launch_boundary/format_watch.h"

#include <gst/video/video.h>

#include <cstdint>
#include <string>
#include <utility>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

constexpr const char* kReportedKey = "linux-capture-format-reported";

// A source that does follow may give its last picture once more, as it was.
constexpr int kMisfitsToReport = 5;

// Used by the source's own thread alone.
struct FormatWatch {
  GstCapsPtr caps;
  GstVideoInfo format{};
  int misfits = 0;  // in a row
  bool isReported = false;
};

bool ReadWatchedFormat(GstPad* pad, FormatWatch& watch) {
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps) return false;
  if (caps.get() != watch.caps.get()) {
    watch.caps = std::move(caps);
    gst_video_info_init(&watch.format);
    if (gst_video_info_from_caps(&watch.format, watch.caps.get()) == FALSE) {
      // Untested: the caps around it are those of pictures.
      gst_video_info_init(&watch.format);
    }
  }
  return GST_VIDEO_INFO_FORMAT(&watch.format) > GST_VIDEO_FORMAT_ENCODED;
}

// Whether the picture is none of that format: smaller, or larger by half. Lines
// may be a little longer than they need be. What the source writes beside it
// may still be of the format before.
bool IsMisfit(GstBuffer* buffer, const GstVideoInfo& format) {
  const gsize size = gst_buffer_get_size(buffer);
  // A sign of life without a picture.
  if (size == 0) return false;
  const gsize expected = GST_VIDEO_INFO_SIZE(&format);
  if (size < expected || size >= expected + expected / 2) return true;
  const GstVideoMeta* meta = gst_buffer_get_video_meta(buffer);
  return meta != nullptr &&
         (meta->width != static_cast<guint>(GST_VIDEO_INFO_WIDTH(&format)) ||
          meta->height != static_cast<guint>(GST_VIDEO_INFO_HEIGHT(&format)));
}

void ReportMisfit(GstPad* pad) {
  const GstElementPtr source(gst_pad_get_parent_element(pad));
  if (!source || !ClaimFormatReport(source.get())) return;
  PostElementError(source.get(), GST_RESOURCE_ERROR_SETTINGS,
                   "the source changed the format of its pictures",
                   error_code::kFormatChanged);
}

void WatchFormat(GstPad* pad, GstBuffer* buffer, FormatWatch& watch) {
  if (watch.isReported || !ReadWatchedFormat(pad, watch)) return;
  watch.misfits = IsMisfit(buffer, watch.format) ? watch.misfits + 1 : 0;
  if (watch.misfits < kMisfitsToReport) return;
  watch.isReported = true;
  ReportMisfit(pad);
}

}  // namespace

std::optional<PipeWireVideoFormat> FormatOfPad(GstPad* pad) {
  const GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps || gst_caps_get_size(caps.get()) == 0) return std::nullopt;
  const GstStructure* what = gst_caps_get_structure(caps.get(), 0);
  gint width = 0;
  gint height = 0;
  if (gst_structure_has_name(what, "video/x-raw") == FALSE ||
      gst_structure_get_int(what, "width", &width) == FALSE ||
      gst_structure_get_int(what, "height", &height) == FALSE) {
    return std::nullopt;
  }
  const gchar* pixels = gst_structure_get_string(what, "format");
  PipeWireVideoFormat format{pixels == nullptr ? "" : pixels,
                             static_cast<std::uint32_t>(width),
                             static_cast<std::uint32_t>(height)};
  // The name of graphics memory, not of what is in it.
  if (format.pixels == "DMA_DRM") format.pixels.clear();
  return format;
}

bool ClaimFormatReport(GstElement* source) {
  static int reported = 0;
  return g_object_replace_data(G_OBJECT(source), kReportedKey, nullptr,
                               &reported, nullptr, nullptr) != FALSE;
}

void ReportFormatChanges(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    if (!pad) return;
    AddBufferProbe(pad.get(), [watch = FormatWatch{}](
                                  GstPad* from, PassingBuffer& buffer) mutable {
      WatchFormat(from, buffer.get(), watch);
      return GST_PAD_PROBE_OK;
    });
  });
}

}  // namespace linux_capture
