#ifndef LINUX_CAPTURE_BASE_ELEMENT_ERROR_H_
#define LINUX_CAPTURE_BASE_ELEMENT_ERROR_H_

#include <gst/gst.h>

#include <string>

namespace linux_capture {

// Posts an error of the module's own on the element's bus. `code`, one of
// error_code, travels in the message's details: the text is for people. Any
// thread that may allocate.
void PostElementError(GstElement* element, GstResourceError kind,
                      const std::string& text, const char* code);

// The code of an error message; error_code::kPipelineError for those that
// GStreamer's elements post.
std::string CodeOfElementError(GstMessage* message);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_ELEMENT_ERROR_H_
