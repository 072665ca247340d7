#ifndef LINUX_CAPTURE_AUDIO_AUDIO_REBINDING_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_REBINDING_H_

#include <string>

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// A copy of the active configuration, to parse new audio targets into. Throws
// CodedError unless a capture with selected-process audio is running.
// JavaScript thread.
CaptureConfig CopyConfigForRebinding() EXCLUDES(g_mutex);

// Replaces the running audio pipeline by one for the targets and metadata of
// `config` and returns its launch text; video is not touched. Throws
// CodedError. Once the old pipeline is gone a failure leaves it gone
// and the new targets active: without a pipeline when it could not be built,
// with one that a further call may replace when it did not start. JavaScript
// thread.
std::string RebindAudioTargets(const CaptureConfig& config)
    EXCLUDES(g_controlMutex, g_mutex);

// Gives the running capture selected-process audio without a target: silence
// that RebindAudioTargets can replace. Whatever sound it had before ends, and
// it need not have had any. Throws CodedError, in the same way. JavaScript
// thread.
void RecordSilence() EXCLUDES(g_controlMutex, g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_REBINDING_H_
