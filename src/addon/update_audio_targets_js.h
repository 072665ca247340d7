#ifndef LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_
#define LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_

#include <napi.h>

namespace linux_capture {

// updateAudioTargets(linuxAudio): what is recorded from now on, as a plain
// object.
Napi::Value UpdateAudioTargets(const Napi::CallbackInfo& info);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_
