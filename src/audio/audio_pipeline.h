#ifndef LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_

#include <string_view>

#include "base/capture_mutex.h"
#include "base/expendable_thread.h"
#include "config/capture_config.h"
#include "launch_boundary/pipeline_control.h"

namespace linux_capture {

// Launches g_audioPipeline for the targets of `config` and connects its sinks;
// tells `reached` the stages of a capture's setup. Throws CodedError;
// a pipeline whose source was refused is there all the same.
void LaunchAudioPipelineLocked(const CaptureConfig& config,
                               const StartPatience& patience,
                               void (*reached)(std::string_view stage))
    REQUIRES(g_mutex);

// Ends g_audioPipeline and what it used, or gives it up at `deadline`, which
// the answer tells.
bool ReleaseAudioPipelineLocked(ExpendableThread::Deadline deadline)
    REQUIRES(g_mutex);

// Connects the sinks of g_audioPipeline to their callbacks; one probe sink per
// target object of `config`. Throws CodedError when a sink is missing.
void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config)
    REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_H_
