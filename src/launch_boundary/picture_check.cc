#include "launch_boundary/picture_check.h"

#include <gst/video/video.h>

#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/picture_layout.h"

namespace linux_capture {
namespace {

// Used by the one thread that streams at the pad.
struct NegotiatedPictures {
  GstCapsPtr caps;
  GstVideoInfo info{};
  bool isKnown = false;
};

void ReadCaps(GstPad* pad, NegotiatedPictures& pictures) {
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (caps && caps.get() == pictures.caps.get()) return;
  pictures.caps = std::move(caps);
  // Graphics memory is not read here.
  pictures.isKnown =
      pictures.caps &&
      gst_caps_features_is_equal(gst_caps_get_features(pictures.caps.get(), 0),
                                 GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY) !=
          FALSE &&
      gst_video_info_from_caps(&pictures.info, pictures.caps.get()) != FALSE;
}

GstPadProbeReturn DropUnreadable(GstPad* pad, const PassingBuffer& picture,
                                 NegotiatedPictures& pictures) {
  ReadCaps(pad, pictures);
  if (!pictures.isKnown || LayoutOf(picture.get(), pictures.info)) {
    return GST_PAD_PROBE_OK;
  }
  ReportDroppedPicture(GST_OBJECT(pad), picture.get(), pictures.info);
  return GST_PAD_PROBE_DROP;
}

}  // namespace

void DropUnreadablePictures(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    if (!pad) return;
    AddBufferProbe(pad.get(),
                   [pictures = NegotiatedPictures{}](
                       GstPad* sourcePad, PassingBuffer& picture) mutable {
                     return DropUnreadable(sourcePad, picture, pictures);
                   });
  });
}

}  // namespace linux_capture
