#ifndef LINUX_CAPTURE_ADDON_SET_BITRATE_JS_H_
#define LINUX_CAPTURE_ADDON_SET_BITRATE_JS_H_

#include <napi.h>

namespace linux_capture {

// setBitrate(bitsPerSecond): the applied rates as a plain object.
Napi::Value SetBitrate(const Napi::CallbackInfo& info);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_SET_BITRATE_JS_H_
