#include "launch_boundary/first_picture.h"

#include "base/pipeline_elements.h"

namespace linux_capture {

void BeginWithFirstPicture(GstElement* pipeline) {
  ForEachElementOf(pipeline, "videorate", [](GstElement* videoRate) {
    g_object_set(videoRate, "skip-to-first", TRUE, nullptr);
  });
}

}  // namespace linux_capture
