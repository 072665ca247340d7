#include "launch_boundary/pipeline_launch.h"

#include <algorithm>

#include "base/coded_error.h"
#include "base/stage_log.h"
#include "launch_boundary/pipeline_dump.h"
#include "launch_boundary/source_properties.h"

namespace linux_capture {
namespace {

// GStreamer's messages follow the locale, its numbers do not.
const char* CodeOfParseError(const GError* error) {
  if (g_error_matches(error, GST_PARSE_ERROR,
                      GST_PARSE_ERROR_NO_SUCH_ELEMENT) != FALSE) {
    return error_code::kMissingElement;
  }
  if (g_error_matches(error, GST_PARSE_ERROR,
                      GST_PARSE_ERROR_NO_SUCH_PROPERTY) != FALSE) {
    return error_code::kMissingProperty;
  }
  return error_code::kPipelineInvalid;
}

}  // namespace

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
  if (!pipeline || error) {
    throw CodedError(
        CodeOfParseError(error.get()),
        error ? error->message : "unknown GStreamer parse failure");
  }
  return pipeline;
}

void SetPlayingOrThrow(GstElement* pipeline, const std::string& label) {
  LogCaptureStage(label + ":set-state-playing:begin");
  const GstStateChangeReturn change =
      gst_element_set_state(pipeline, GST_STATE_PLAYING);
  LogCaptureStage(label + ":set-state-playing:result=" +
                  std::to_string(static_cast<int>(change)));
  if (change == GST_STATE_CHANGE_FAILURE) {
    throw CodedError(error_code::kStateChangeFailed,
                     label + " failed to enter PLAYING state");
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
    throw CodedError(error_code::kStateChangeFailed,
                     label + " reported GStreamer state-change failure");
  }
  std::string name = "linux-capture-" + label + "-playing";
  std::replace(name.begin(), name.end(), ' ', '-');
  DumpPipeline(pipeline, name);
}

}  // namespace linux_capture
