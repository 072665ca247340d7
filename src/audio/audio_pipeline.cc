#include "audio/audio_pipeline.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "audio/audio_pipeline_text.h"
#include "audio/audio_samples.h"
#include "base/coded_error.h"
#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "launch_boundary/repaired_launch.h"
#include "state/capture_state.h"

namespace linux_capture {
void LaunchAudioPipelineLocked(const CaptureConfig& config,
                               void (*reached)(std::string_view stage)) {
  reached("captureSetup:audio-pipeline-build:begin");
  *g_audioPipelineDescription = BuildAudioPipeline(config);
  reached("captureSetup:audio-pipeline-launch:begin");
  LaunchRepaired(*g_audioPipelineDescription, PipelineKind::kSound, config,
                 *g_audioPipeline);
  reached("captureSetup:audio-pipeline-launch:complete");
  try {
    AttachAudioPipelineCallbacksLocked(config);
  } catch (...) {
    ReleaseAudioPipelineLocked();
    throw;
  }
  reached("captureSetup:audio-callbacks-attached");
}

// Contexts go last: in NULL no streaming thread can use them any more.
void ReleaseAudioPipelineLocked() {
  if (*g_audioPipeline) {
    gst_element_set_state(g_audioPipeline->get(), GST_STATE_NULL);
    g_audioPipeline->reset();
  }
  g_audioProbeSinkContexts->clear();
}

void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config) {
  GstElement* pipeline = g_audioPipeline->get();
  const GstElementPtr mixedSink = FindElement(pipeline, "audioSink");
  if (!mixedSink) {
    throw CodedError(error_code::kPipelineInvalid,
                     "audio appsink was not created");
  }
  ConnectSignal<&OnAudioSample>(mixedSink.get(), "new-sample", pipeline);

  for (std::size_t i = 0; i < config.pipeWireTargetObjects.size(); ++i) {
    const std::string name = "audioProbeSink" + std::to_string(i);
    const GstElementPtr probeSink = FindElement(pipeline, name);
    if (!probeSink) {
      throw CodedError(error_code::kPipelineInvalid,
                       "audio probe appsink was not created: " + name);
    }
    // The list owns the context before the sink can use it.
    g_audioProbeSinkContexts->push_back(
        std::make_unique<AudioProbeSinkContext>(AudioProbeSinkContext{i}));
    ConnectSignal<&OnAudioProbeSample>(probeSink.get(), "new-sample",
                                       g_audioProbeSinkContexts->back().get());
  }
}

}  // namespace linux_capture
