#ifndef LINUX_CAPTURE_ADDON_EXPORTS_JS_H_
#define LINUX_CAPTURE_ADDON_EXPORTS_JS_H_

#include <napi.h>

namespace linux_capture {

// The functions that JavaScript sees, apart from those that live with their
// subsystem. All run on the JavaScript thread.
Napi::Value CaptureSetup(const Napi::CallbackInfo& info);
Napi::Value StopCapture(const Napi::CallbackInfo& info);
Napi::Value IsCapturing(const Napi::CallbackInfo& info);
Napi::Value ResetStats(const Napi::CallbackInfo& info);
Napi::Value GetStats(const Napi::CallbackInfo& info);
Napi::Value ListWindows(const Napi::CallbackInfo& info);
Napi::Value ListMonitors(const Napi::CallbackInfo& info);
Napi::Value ForceKeyframeFromJs(const Napi::CallbackInfo& info);
Napi::Value DuplicateFdFromPid(const Napi::CallbackInfo& info);
Napi::Value OnFragmentReady(const Napi::CallbackInfo& info);
Napi::Value OnAudioSamples(const Napi::CallbackInfo& info);
Napi::Value OnCaptureLifecycle(const Napi::CallbackInfo& info);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_EXPORTS_JS_H_
