#ifndef LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_

#include "config/capture_config.h"

namespace linux_capture {

// Connects the sinks of g_audioPipeline to their callbacks; one probe sink per
// target object of `config`. Throws CodedError when a sink is missing.
// Capture mutex held.
void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_
