#include "addon/exports_js.h"

#include <exception>
#include <string>

#include "addon/delivery_js.h"
#include "addon/descriptor_duplication.h"
#include "addon/environment_js.h"
#include "addon/exported_js.h"
#include "addon/packet_objects_js.h"
#include "addon/stats_report_js.h"
#include "base/capture_mutex.h"
#include "base/stage_log.h"
#include "config/capture_request_js.h"
#include "delivery/callbacks.h"
#include "delivery/lifecycle.h"
#include "session/capture_session.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "stats/stats_reset.h"
#include "stats/stats_snapshot.h"
#include "video_hardware/keyframe_forcing.h"

namespace linux_capture {
namespace {

CaptureConfig ParseRequest(const Napi::CallbackInfo& info) {
  LogCaptureStage("captureSetup:enter");
  CaptureConfig config =
      ParseConfig(info.Length() > 0 ? info[0] : info.Env().Undefined());
  LogCaptureStage("captureSetup:parsed backend=" + config.backend +
                  " audioMode=" + config.audioMode +
                  " branches=" + std::to_string(config.branches.size()) +
                  " encoderRequirement=" + config.encoderRequirement);
  return config;
}

// Whose loop a capture holds is settled by who has the control, or it could be
// that of another one by then.
void StartAndHoldLoop(napi_env env, const CaptureConfig& config) {
  StartPatience patience;
  const CallerLock control(g_controlMutex, g_controlCallers);
  try {
    StartCapture(config, patience);
  } catch (...) {
    ReleaseLoopFromCapture();
    HoldLoopWhileItemsPend(env);
    throw;
  }
  HoldLoopForCapture(env);
}

// `told` is done while nobody else can start or stop one.
template <typename Told>
void StopAndReleaseLoop(napi_env env, Told told) {
  const CallerLock control(g_controlMutex, g_controlCallers);
  StopCaptureInternal(kStopPatience);
  told();
  ReleaseLoopFromCapture();
  HoldLoopWhileItemsPend(env);
}

// Shared by the three registrations; refuses anything but one function.
Napi::Value RegisterCallback(const Napi::CallbackInfo& info, const char* name,
                             CallbackQueue& slot,
                             napi_threadsafe_function_call_js deliver) {
  if (info.Length() != 1 || !info[0].IsFunction()) {
    throw ArgumentError(info.Env(), std::string(name) + " requires a callback");
  }
  if (slot.Register(info.Env(), info[0], deliver) != napi_ok) {
    // Untested: only where Node.js is ending the environment.
    throw Napi::Error::New(info.Env());
  }
  RenewEnvironmentCleanup(info.Env());
  return info.Env().Undefined();
}

}  // namespace

Napi::Value CaptureSetup(const Napi::CallbackInfo& info) {
  CaptureConfig config;
  try {
    config = ParseRequest(info);
  } catch (const std::exception& error) {
    LogCaptureStage(std::string("captureSetup:error:") + error.what());
    StopAndReleaseLoop(info.Env(), [] {});
    throw;
  }
  StartAndHoldLoop(info.Env(), config);
  return info.Env().Undefined();
}

Napi::Value StopCapture(const Napi::CallbackInfo& info) {
  StopAndReleaseLoop(info.Env(), [] {
    EmitLifecycle("stopped", "stopCapture", g_width.Get(), g_height.Get());
  });
  return info.Env().Undefined();
}

Napi::Value IsCapturing(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_isCapturing.load());
}

Napi::Value ResetStats(const Napi::CallbackInfo& info) {
  ResetStatistics();
  return info.Env().Undefined();
}

Napi::Value GetStats(const Napi::CallbackInfo& info) {
  return Finish(info.Env(), StatsToJs(info.Env(), TakeStatsSnapshot()));
}

// Windows and monitors are chosen outside this module; the two functions exist
// so that callers can treat every platform alike.
Napi::Value ListWindows(const Napi::CallbackInfo& info) {
  return Napi::Array::New(info.Env());
}

Napi::Value ListMonitors(const Napi::CallbackInfo& info) {
  return Napi::Array::New(info.Env());
}

Napi::Value ForceKeyframeFromJs(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), ForceKeyframe());
}

Napi::Value DuplicateFdFromPid(const Napi::CallbackInfo& info) {
  if (info.Length() != 2 || !info[0].IsNumber() || !info[1].IsNumber()) {
    throw ArgumentError(info.Env(),
                        "duplicateFdFromPid requires pid and fd numbers");
  }
  return Napi::Number::New(
      info.Env(),
      DuplicateDescriptorFromProcess(info[0].As<Napi::Number>().Int32Value(),
                                     info[1].As<Napi::Number>().Int32Value()));
}

Napi::Value OnFragmentReady(const Napi::CallbackInfo& info) {
  return RegisterCallback(info, "onFragmentReady", g_fragmentCallback,
                          DeliverItem<VideoPacket, VideoPacketToJs>);
}

Napi::Value OnAudioSamples(const Napi::CallbackInfo& info) {
  return RegisterCallback(info, "onAudioSamples", g_audioCallback,
                          DeliverItem<AudioPacket, AudioPacketToJs>);
}

Napi::Value OnCaptureLifecycle(const Napi::CallbackInfo& info) {
  return RegisterCallback(info, "onCaptureLifecycle", g_lifecycleCallback,
                          DeliverItem<LifecycleEvent, LifecycleEventToJs>);
}

}  // namespace linux_capture
