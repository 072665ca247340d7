#include "launch_boundary/colorimetry.h"

#include <string_view>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"

namespace linux_capture {

void PinColorimetry(GstElement* pipeline) {
  ForEachElementOf(pipeline, "capsfilter", [](GstElement* capsFilter) {
    const GstElementPtr upstream = UpstreamOf(capsFilter);
    if (!upstream) return;
    const std::string_view factory = FactoryNameOf(upstream.get());
    if (factory != "videoconvert" && factory != "videorate") return;
    GstCaps* raw = nullptr;
    g_object_get(capsFilter, "caps", &raw, nullptr);
    const GstCapsPtr caps(gst_caps_make_writable(raw));
    gst_caps_set_simple(caps.get(), "colorimetry", G_TYPE_STRING,
                        kFullRangeBt709, nullptr);
    g_object_set(capsFilter, "caps", caps.get(), nullptr);
  });
}

}  // namespace linux_capture
