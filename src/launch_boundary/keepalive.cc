#include "launch_boundary/keepalive.h"

#include "base/pipeline_elements.h"

namespace linux_capture {

void RepeatStillPictures(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    if (HasProperty(source, "keepalive-time")) {
      g_object_set(source, "keepalive-time",
                   static_cast<gint>(kStillPictureDistance / GST_MSECOND),
                   nullptr);
    }
  });
}

}  // namespace linux_capture
