#include "launch_boundary/source_fallback.h"

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"

namespace linux_capture {

void ForbidSourceFallback(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstStructurePtr properties(gst_structure_new(
        "props", "node.dont-fallback", G_TYPE_STRING, "true", nullptr));
    g_object_set(source, "stream-properties", properties.get(), nullptr);
  });
}

}  // namespace linux_capture
