#include "audio/audio_pipeline.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio_pipeline_text.h"
#include "audio/audio_samples.h"
#include "base/coded_error.h"
#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "state/capture_state.h"

namespace linux_capture {
namespace {

// What the sinks of one pipeline use.
struct AudioContexts {
  std::unique_ptr<AudioSinkContext> mixed;
  std::vector<std::unique_ptr<AudioProbeSinkContext>> probes;

  void Shut() {
    if (mixed) mixed->gate.Shut();
    for (const auto& probe : probes) probe->gate.Shut();
  }
};

}  // namespace

void LaunchAudioPipelineLocked(const CaptureConfig& config,
                               const StartPatience& patience,
                               void (*reached)(std::string_view stage)) {
  reached("captureSetup:audio-pipeline-build:begin");
  *g_audioPipelineDescription = BuildAudioPipeline(config);
  reached("captureSetup:audio-pipeline-launch:begin");
  *g_audioControl =
      std::make_unique<PipelineControl>("audio", PipelineKind::kSound);
  (*g_audioControl)
      ->Launch(*g_audioPipelineDescription, config, patience, *g_audioPipeline);
  reached("captureSetup:audio-pipeline-launch:complete");
  try {
    AttachAudioPipelineCallbacksLocked(config);
  } catch (...) {
    // Untested: the text that the module itself builds always has the sinks.
    ReleaseAudioPipelineLocked(patience.deadline());
    throw;
  }
  reached("captureSetup:audio-callbacks-attached");
}

// Contexts go last: in NULL no streaming thread can use them any more.
bool ReleaseAudioPipelineLocked(ExpendableThread::Deadline deadline) {
  auto contexts = std::make_shared<AudioContexts>();
  contexts->mixed = std::move(*g_audioSinkContext);
  contexts->probes = std::exchange(*g_audioProbeSinkContexts, {});
  if (EndPipeline(*g_audioControl, *g_audioPipeline, deadline)) return true;
  contexts->Shut();
  (*g_audioControl)->Retire(std::move(contexts));
  g_audioControl->reset();
  return false;
}

void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config) {
  GstElement* pipeline = g_audioPipeline->get();
  const GstElementPtr mixedSink = FindElement(pipeline, "audioSink");
  if (!mixedSink) {
    throw CodedError(error_code::kPipelineInvalid,
                     "audio appsink was not created");
  }
  *g_audioSinkContext = std::make_unique<AudioSinkContext>();
  (*g_audioSinkContext)->pipeline = pipeline;
  ConnectSignal<&OnAudioSample>(mixedSink.get(), "new-sample",
                                g_audioSinkContext->get());

  for (std::size_t i = 0; i < config.pipeWireTargetObjects.size(); ++i) {
    const std::string name = "audioProbeSink" + std::to_string(i);
    const GstElementPtr probeSink = FindElement(pipeline, name);
    if (!probeSink) {
      throw CodedError(error_code::kPipelineInvalid,
                       "audio probe appsink was not created: " + name);
    }
    // The list owns the context before the sink can use it.
    auto context = std::make_unique<AudioProbeSinkContext>();
    context->sourceIndex = i;
    g_audioProbeSinkContexts->push_back(std::move(context));
    ConnectSignal<&OnAudioProbeSample>(probeSink.get(), "new-sample",
                                       g_audioProbeSinkContexts->back().get());
  }
}

}  // namespace linux_capture
