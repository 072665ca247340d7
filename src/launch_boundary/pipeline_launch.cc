#include "launch_boundary/pipeline_launch.h"

#include "base/coded_error.h"
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

}  // namespace linux_capture
