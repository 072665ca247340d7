#ifndef LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_
#define LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_

#include <napi.h>

namespace linux_capture {

// updateAudioTargets(linuxAudio): what is recorded from now on, as a plain
// object.
Napi::Value UpdateAudioTargets(const Napi::CallbackInfo& info);

// The session API waits for applications that do not play yet, for which the
// capture has to have sound without a target. It finds that on
// `updateAudioTargets` under Symbol.for("linux-capture.silence"): a function
// without arguments. The module's exports are the host's, and stay as they are.
void OfferSilence(Napi::Env env, Napi::Object updateAudioTargets);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_UPDATE_AUDIO_TARGETS_JS_H_
