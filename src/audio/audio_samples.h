#ifndef LINUX_CAPTURE_AUDIO_AUDIO_SAMPLES_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_SAMPLES_H_

#include <gst/app/gstappsink.h>

#include <cstddef>
#include <cstdint>

#include "state/capture_state.h"

namespace linux_capture {

// "new-sample" of the mixed audio sink: meters one buffer and queues it to the
// audio callback. `pipeline` is the audio pipeline (GstElement*, not owned, may
// be null), whose base time places the buffer on the session clock; it is
// handed over here because the handle's mutex must not be taken on a streaming
// thread. Never waits for JavaScript.
GstFlowReturn OnAudioSample(GstAppSink* sink, AudioSinkContext* context);

// "new-sample" of one source's probe sink: meters one buffer into the source's
// statistics.
GstFlowReturn OnAudioProbeSample(GstAppSink* sink,
                                 AudioProbeSinkContext* context);

// Duration of so many interleaved samples, in microseconds.
std::uint64_t AudioDurationUs(std::size_t sampleCount, std::int32_t channels,
                              std::int32_t sampleRate);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_SAMPLES_H_
