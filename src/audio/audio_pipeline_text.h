#ifndef LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_TEXT_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_TEXT_H_

#include <string>

#include "config/capture_config.h"

namespace linux_capture {

// The launch text of the audio pipeline: every target object is mixed into
// "audioSink" and metered alone by "audioProbeSink<index>". An empty target
// list gives the mixer alone. Throws CodedError when the configuration
// wants no audio.
std::string BuildAudioPipeline(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_PIPELINE_TEXT_H_
