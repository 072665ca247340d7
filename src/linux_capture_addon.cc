#include <napi.h>

#include <exception>

#include "addon/environment_js.h"
#include "addon/exported_js.h"
#include "addon/exports_js.h"
#include "addon/session_claim_js.h"
#include "addon/set_bitrate_js.h"
#include "addon/update_audio_targets_js.h"
#include "base/gst_init.h"
#include "video_hardware/provider_probe.h"

namespace linux_capture {
namespace {

// Property order is the order of the export table.
template <ExportedBody Body>
void SetExport(Napi::Object exports, const char* name) {
  exports.Set(name, Napi::Function::New(exports.Env(), Exported<Body>, name));
}

}  // namespace

// Runs once per environment that loads the module.
Napi::Object Init(Napi::Env env, Napi::Object exports) {
  InitializeGStreamer();
  RenewProviderProbeReports();
  SetExport<CaptureSetup>(exports, "captureSetup");
  SetExport<StopCapture>(exports, "stopCapture");
  SetExport<IsCapturing>(exports, "isCapturing");
  SetExport<ResetStats>(exports, "resetStats");
  SetExport<GetStats>(exports, "getStats");
  SetExport<ListWindows>(exports, "listWindows");
  SetExport<ListMonitors>(exports, "listMonitors");
  SetExport<ForceKeyframeFromJs>(exports, "forceKeyframe");
  SetExport<SetBitrate>(exports, "setBitrate");
  SetExport<UpdateAudioTargets>(exports, "updateAudioTargets");
  SetExport<DuplicateFdFromPid>(exports, "duplicateFdFromPid");
  SetExport<OnFragmentReady>(exports, "onFragmentReady");
  SetExport<OnAudioSamples>(exports, "onAudioSamples");
  SetExport<OnCaptureLifecycle>(exports, "onCaptureLifecycle");
  OfferSessionClaim(env, exports.Get("captureSetup").As<Napi::Object>());
  OfferSilence(env, exports.Get("updateAudioTargets").As<Napi::Object>());
  RegisterEnvironment(env);
  return exports;
}

namespace {

Napi::Object InitModule(Napi::Env env, Napi::Object exports) {
  try {
    return Init(env, exports);
  } catch (const Napi::Error&) {
    throw;
  } catch (const std::exception& error) {
    throw ToJsError(env, error);
  }
}

}  // namespace
}  // namespace linux_capture

using linux_capture::InitModule;
NODE_API_MODULE(linux_capture_addon, InitModule)
