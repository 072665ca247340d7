#include "addon/update_audio_targets_js.h"

#include <cstdint>
#include <string>

#include "addon/exported_js.h"
#include "addon/stats_report_js.h"
#include "audio/audio_rebinding.h"
#include "config/linux_audio_request_js.h"

namespace linux_capture {
namespace {

Napi::Value StartSilence(const Napi::CallbackInfo& info) {
  RecordSilence();
  return info.Env().Undefined();
}

}  // namespace

Napi::Value UpdateAudioTargets(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  if (info.Length() < 1 || !info[0].IsObject()) {
    throw ArgumentError(env,
                        "updateAudioTargets requires one linuxAudio object");
  }
  // No lock is held while the argument is read: its getters may run any
  // JavaScript.
  CaptureConfig config = CopyConfigForRebinding();
  ParseLinuxAudioConfig(info[0].As<Napi::Object>(), config.audioMode, config);
  const std::string audioPipeline = RebindAudioTargets(config);

  JsObject result(env);
  result.Text("mode", config.audioMode)
      .Numbers("pipeWireTargetObjects", config.pipeWireTargetObjects);
  std::uint32_t sourceIndex = 0;
  result.Array(
      "sources", config.audioSources,
      [&sourceIndex](napi_env target, const AudioSourceMetadata& source) {
        JsObject element(target);
        AddAudioSourceIdentity(element, sourceIndex++, source);
        return element;
      });
  result.Text("audioPipeline", audioPipeline);
  return Finish(env, result);
}

void OfferSilence(Napi::Env env, Napi::Object updateAudioTargets) {
  const Napi::Symbol key = Napi::Symbol::For(env, "linux-capture.silence");
  updateAudioTargets.DefineProperty(Napi::PropertyDescriptor::Value(
      key, Napi::Function::New(env, Exported<StartSilence>), napi_default));
}

}  // namespace linux_capture
