#include "launch_boundary/pipeline_launch.h"

#include <stdexcept>

#include "base/stage_log.h"
#include "launch_boundary/launch_boundary.h"

namespace linux_capture {

GstElementPtr LaunchPipeline(const std::string& description) {
  const std::string text = OmitUnsupportedSourceProperties(description);
  GError* rawError = nullptr;
  GstElement* launched = gst_parse_launch(text.c_str(), &rawError);
  const GErrorPtr error(rawError);
  // The parser returns a floating reference; the pipeline is ours alone.
  GstElementPtr pipeline;
  if (launched != nullptr) {
    pipeline = AdoptElement(GST_ELEMENT(gst_object_ref_sink(launched)));
  }
  if (!pipeline) {
    throw std::runtime_error(error ? error->message
                                   : "unknown GStreamer parse failure");
  }
  if (error) throw std::runtime_error(error->message);
  return pipeline;
}

void SetPlayingOrThrow(GstElement* pipeline, const std::string& label) {
  LogCaptureStage(label + ":set-state-playing:begin");
  const GstStateChangeReturn change =
      gst_element_set_state(pipeline, GST_STATE_PLAYING);
  LogCaptureStage(label + ":set-state-playing:result=" +
                  std::to_string(static_cast<int>(change)));
  if (change == GST_STATE_CHANGE_FAILURE) {
    throw std::runtime_error(label + " failed to enter PLAYING state");
  }
  LogCaptureStage(label + ":get-state:begin");
  GstState state = GST_STATE_NULL;
  GstState pending = GST_STATE_VOID_PENDING;
  const GstStateChangeReturn reached =
      gst_element_get_state(pipeline, &state, &pending, 5 * GST_SECOND);
  LogCaptureStage(
      label + ":get-state:result=" + std::to_string(static_cast<int>(reached)) +
      ":state=" + gst_element_state_get_name(state) +
      ":pending=" + gst_element_state_get_name(pending));
  if (reached == GST_STATE_CHANGE_FAILURE) {
    throw std::runtime_error(label +
                             " reported GStreamer state-change failure");
  }
}

}  // namespace linux_capture
