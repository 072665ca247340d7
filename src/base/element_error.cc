#include "base/element_error.h"

#include "base/coded_error.h"
#include "base/gst_handles.h"

namespace linux_capture {
namespace {

constexpr const char* kDetailsName = "linux-capture-error";
constexpr const char* kCodeField = "linux-capture-code";

}  // namespace

void PostElementError(GstElement* element, GstResourceError kind,
                      const std::string& text, const char* code) {
  const GErrorPtr error(
      g_error_new_literal(GST_RESOURCE_ERROR, kind, text.c_str()));
  // The message owns the details, the bus the message.
  GstStructure* details =
      gst_structure_new(kDetailsName, kCodeField, G_TYPE_STRING, code, nullptr);
  gst_element_post_message(
      element, gst_message_new_error_with_details(
                   GST_OBJECT(element), error.get(), nullptr, details));
}

std::string CodeOfElementError(GstMessage* message) {
  const GstStructure* details = nullptr;
  gst_message_parse_error_details(message, &details);
  const gchar* code = details == nullptr
                          ? nullptr
                          : gst_structure_get_string(details, kCodeField);
  return code == nullptr ? error_code::kPipelineError : code;
}

}  // namespace linux_capture
