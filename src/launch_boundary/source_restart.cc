#include "launch_boundary/source_restart.h"

#include <memory>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

// A source that is stopped, that has ended or that failed is left alone.
bool StandsStill(GstElement* source, GstPad* pad, GstTask* task) {
  return GST_STATE(source) == GST_STATE_PLAYING && !GST_PAD_IS_FLUSHING(pad) &&
         !GST_PAD_IS_EOS(pad) && gst_task_get_state(task) == GST_TASK_PAUSED;
}

void RestartPausedSource(GstElement* source) {
  const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
  if (!pad) return;
  GST_OBJECT_LOCK(pad.get());
  GstTask* task = GST_PAD_TASK(pad.get());
  if (task != nullptr) gst_object_ref(task);
  GST_OBJECT_UNLOCK(pad.get());
  const std::unique_ptr<GstTask, GstObjectDeleter> held(task);
  if (held && StandsStill(source, pad.get(), task)) gst_task_start(task);
}

}  // namespace

void RestartPausedSources(GstElement* pipeline) {
  if (pipeline == nullptr) return;
  ForEachElementOf(pipeline, "pipewiresrc", RestartPausedSource);
}

}  // namespace linux_capture
