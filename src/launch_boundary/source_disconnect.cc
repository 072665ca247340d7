#include "launch_boundary/source_disconnect.h"

#include "base/pipeline_elements.h"
#include "launch_boundary/watched_sources.h"

namespace linux_capture {

void OutliveFormatChanges(GstElement* pipeline) {
  const SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr || !watch->registry) return;
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    if (HasProperty(source, "on-disconnect")) {
      gst_util_set_object_arg(G_OBJECT(source), "on-disconnect", "none");
    }
  });
}

}  // namespace linux_capture
