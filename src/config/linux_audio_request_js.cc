#include "config/linux_audio_request_js.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/coded_error.h"
#include "config/request_values_js.h"

namespace linux_capture {
namespace {

// About a tenth of a second when every element is a hole.
constexpr std::uint32_t kMaxElementsReadInTurn = 1'000'000;

void CheckAudioModesAgree(const std::string& audioMode,
                          const std::string& linuxMode) {
  if (audioMode == "process" && linuxMode != "process") {
    throw CodedError(
        error_code::kInvalidRequest,
        "linuxAudio.mode must be \"process\" for selected-process audio");
  }
  // "auto" asks for whatever the host decided on, and that is system audio.
  const bool isSystemAudio = audioMode == "system" || audioMode == "auto";
  if (isSystemAudio && linuxMode != "system") {
    throw CodedError(error_code::kInvalidRequest,
                     "linuxAudio.mode must be \"system\" for system audio");
  }
}

// Nothing is reserved by the length, which a sparse array makes as large as it
// likes; such an array fails at its first hole.
void ReadTargetObjects(const Napi::Array& list,
                       std::vector<std::uint32_t>& targets) {
  const std::uint32_t length = list.Length();
  for (std::uint32_t i = 0; i < length; ++i) {
    const Napi::HandleScope scope(list.Env());
    const Napi::Value element = list.Get(i);
    if (!element.IsNumber()) {
      throw CodedError(
          error_code::kInvalidRequest,
          "linuxAudio.pipeWireTargetObjects entries must be numbers");
    }
    const std::int32_t target = element.As<Napi::Number>().Int32Value();
    if (target < 1) {
      throw CodedError(
          error_code::kInvalidRequest,
          "linuxAudio.pipeWireTargetObjects entries must be positive");
    }
    targets.push_back(static_cast<std::uint32_t>(target));
  }
}

AudioSourceMetadata ReadAudioSource(const Napi::Object& entry) {
  AudioSourceMetadata source;
  ReadOptionalUint32(entry, "pipeWireTargetObject",
                     source.pipeWireTargetObject);
  ReadOptionalUint32(entry, "pipeWireNodeId", source.pipeWireNodeId);
  ReadOptionalUint32(entry, "pipeWireObjectSerial",
                     source.pipeWireObjectSerial);
  ReadOptionalUint32(entry, "processId", source.processId);
  ReadOptionalString(entry, "applicationName", source.applicationName);
  ReadOptionalString(entry, "processBinary", source.processBinary);
  ReadOptionalString(entry, "nodeName", source.nodeName);
  ReadOptionalString(entry, "mediaName", source.mediaName);
  ReadOptionalString(entry, "targetObject", source.targetObject);
  return source;
}

// The indexes at which the array has elements of its own, in ascending order,
// among other property names.
Napi::Array OwnKeys(const Napi::Array& list) {
  const Napi::Env env = list.Env();
  napi_value keys = nullptr;
  if (napi_get_all_property_names(env, list, napi_key_own_only,
                                  napi_key_skip_symbols, napi_key_keep_numbers,
                                  &keys) != napi_ok) {
    // Untested: an array tells its keys unless the environment is ending.
    throw Napi::Error::New(env);
  }
  return Napi::Array(env, keys);
}

// Calls `visit` with each element in order. Holes may be left out: they are
// skipped like every element that is no object, and a sparse array would
// otherwise hold up the JavaScript thread for minutes.
template <typename Visit>
void ForEachListElement(const Napi::Array& list, const Visit& visit) {
  const Napi::Env env = list.Env();
  const std::uint32_t length = list.Length();
  if (length <= kMaxElementsReadInTurn) {
    for (std::uint32_t i = 0; i < length; ++i) {
      const Napi::HandleScope scope(env);
      visit(list.Get(i));
    }
    return;
  }
  const Napi::Array keys = OwnKeys(list);
  const std::uint32_t keyCount = keys.Length();
  for (std::uint32_t i = 0; i < keyCount; ++i) {
    const Napi::HandleScope scope(env);
    const Napi::Value key = keys.Get(i);
    if (key.IsNumber()) visit(list.Get(key.As<Napi::Number>().Uint32Value()));
  }
}

// Empty unless the list describes exactly `wanted` sources: with any other
// count nobody can tell which description belongs to which target.
std::vector<AudioSourceMetadata> ReadAudioSources(const Napi::Value& list,
                                                  std::size_t wanted) {
  std::vector<AudioSourceMetadata> sources;
  if (!list.IsArray()) return sources;
  std::size_t count = 0;
  ForEachListElement(list.As<Napi::Array>(), [&](const Napi::Value& element) {
    if (!element.IsObject()) return;
    AudioSourceMetadata source = ReadAudioSource(element.As<Napi::Object>());
    // A surplus is read, so that every getter runs, but not kept.
    if (++count <= wanted) sources.push_back(std::move(source));
  });
  if (count != wanted) sources.clear();
  return sources;
}

}  // namespace

void ParseLinuxAudioConfig(const Napi::Object& linuxAudio,
                           const std::string& audioMode,
                           CaptureConfig& config) {
  CheckAudioModesAgree(audioMode, GetRequiredString(linuxAudio, "mode"));
  config.pipeWireTargetObjects.clear();
  config.audioSources.clear();
  const Napi::Value targets = linuxAudio.Get("pipeWireTargetObjects");
  if (!targets.IsArray()) {
    throw CodedError(error_code::kInvalidRequest,
                     "linuxAudio.pipeWireTargetObjects must be an array");
  }
  ReadTargetObjects(targets.As<Napi::Array>(), config.pipeWireTargetObjects);
  if (config.pipeWireTargetObjects.empty()) {
    throw CodedError(
        error_code::kInvalidRequest,
        "requested Linux audio is unavailable: no PipeWire target objects were "
        "provided");
  }
  config.audioSources = ReadAudioSources(linuxAudio.Get("pipeWireAudioSources"),
                                         config.pipeWireTargetObjects.size());
  if (!config.audioSources.empty()) return;
  for (const std::uint32_t target : config.pipeWireTargetObjects) {
    AudioSourceMetadata source;
    source.pipeWireTargetObject = target;
    config.audioSources.push_back(std::move(source));
  }
}

}  // namespace linux_capture
