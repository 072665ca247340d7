#include "launch_boundary/scaling_method.h"

#include "base/pipeline_elements.h"

namespace linux_capture {

void ScaleFromAllPixels(GstElement* pipeline) {
  ForEachElementOf(pipeline, "videoscale", [](GstElement* scaler) {
    gst_util_set_object_arg(G_OBJECT(scaler), "method", "bilinear2");
  });
}

}  // namespace linux_capture
