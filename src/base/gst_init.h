#ifndef LINUX_CAPTURE_BASE_GST_INIT_H_
#define LINUX_CAPTURE_BASE_GST_INIT_H_

#include <stdexcept>
#include <string>

#include "base/coded_error.h"
#include "base/gst_handles.h"

namespace linux_capture {

// Idempotent. Throws CodedError where gst_init would end the process.
inline void InitializeGStreamer() {
  GError* rawError = nullptr;
  if (gst_init_check(nullptr, nullptr, &rawError) != FALSE) return;
  const GErrorPtr error(rawError);
  throw CodedError(error_code::kGStreamerUnavailable,
                   "GStreamer could not be initialized: " +
                       std::string(error ? error->message : "no reason given"));
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GST_INIT_H_
