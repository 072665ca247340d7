#ifndef LINUX_CAPTURE_CONFIG_LINUX_AUDIO_REQUEST_JS_H_
#define LINUX_CAPTURE_CONFIG_LINUX_AUDIO_REQUEST_JS_H_

#include <napi.h>

#include <string>

#include "config/capture_config.h"

namespace linux_capture {

// Reads the PipeWire objects to record, and what the host knows about each,
// into the record's pipeWireTargetObjects and audioSources. `audioMode` is the
// request's audio mode, which the object's own mode must agree with. Throws
// CodedError and leaves the two lists as far as they were filled, so a
// caller with a running capture parses into a copy.
void ParseLinuxAudioConfig(const Napi::Object& linuxAudio,
                           const std::string& audioMode, CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_LINUX_AUDIO_REQUEST_JS_H_
