#include "launch_boundary/sink_preroll.h"

#include "base/pipeline_elements.h"

namespace linux_capture {

void DeliverBeforePreroll(GstElement* pipeline) {
  ForEachElementOf(pipeline, "appsink", [](GstElement* sink) {
    g_object_set(sink, "async", FALSE, nullptr);
  });
}

}  // namespace linux_capture
