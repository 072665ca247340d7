#ifndef LINUX_CAPTURE_CONFIG_CAPTURE_REQUEST_JS_H_
#define LINUX_CAPTURE_CONFIG_CAPTURE_REQUEST_JS_H_

#include <napi.h>

#include "config/capture_config.h"

namespace linux_capture {

// Reads the argument of captureSetup. No required key is guessed or defaulted:
// the first wrong one throws CodedError with its message. An error
// thrown by one of the request's own getters passes through as Napi::Error.
[[nodiscard]] CaptureConfig ParseConfig(const Napi::Value& request);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_CAPTURE_REQUEST_JS_H_
