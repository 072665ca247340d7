#include "audio/audio_rebinding.h"

#include <chrono>

#include "audio/audio_pipeline.h"
#include "base/coded_error.h"
#include "base/gst_handles.h"
#include "launch_boundary/close_on_exec.h"
#include "launch_boundary/mix_order.h"
#include "launch_boundary/pipeline_control.h"
#include "state/audio_source_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

// How long the old pipeline may take to end. It only has to be out of the way.
constexpr auto kEndPatience = std::chrono::seconds(1);

// A rebinding has no stages.
void IgnoreStage(std::string_view /*stage*/) {}

// With the targets and metadata of `config`.
void ReplaceAudioPipelineLocked(const CaptureConfig& config,
                                StartPatience& patience) REQUIRES(g_mutex) {
  const ExecGuard execGuard;
  const GstElementPtr ended(
      *g_audioPipeline ? GST_ELEMENT(gst_object_ref(g_audioPipeline->get()))
                       : nullptr);
  const bool hasEnded = ReleaseAudioPipelineLocked(
      std::chrono::steady_clock::now() + kEndPatience);
  patience.KeepLeast();
  g_audioPipelineDescription->clear();
  g_activeVideoConfig->pipeWireTargetObjects = config.pipeWireTargetObjects;
  g_activeVideoConfig->audioSources = config.audioSources;
  // Totals keep growing.
  ZeroCounters(CounterLife::kLastPackets);
  ResetAudioSourceStatsForConfig(config);
  LaunchAudioPipelineLocked(config, patience, IgnoreStage);
  // The mix of one that was given up is still its own.
  if (hasEnded && ended) ContinueMix(ended.get(), g_audioPipeline->get());
  (*g_audioControl)->Play(g_audioPipeline->get(), patience);
}

}  // namespace

CaptureConfig CopyConfigForRebinding() {
  const CallerLock lock(g_mutex, g_captureCallers);
  if (!g_isCapturing.load()) {
    throw CodedError(
        error_code::kNoActiveCapture,
        "Linux updateAudioTargets requires an active capture pipeline");
  }
  if (!*g_audioPipeline) {
    throw CodedError(
        error_code::kNoActiveCapture,
        "Linux updateAudioTargets requires an active audio pipeline");
  }
  if (g_activeVideoConfig->audioMode != "process") {
    throw CodedError(
        error_code::kNotSupported,
        "Linux updateAudioTargets is only supported for selected-process "
        "audio");
  }
  return *g_activeVideoConfig;
}

std::string RebindAudioTargets(const CaptureConfig& config) {
  StartPatience patience;
  const CallerLock control(g_controlMutex, g_controlCallers);
  const CallerLock lock(g_mutex, g_captureCallers);
  if (!g_isCapturing.load() || !*g_audioPipeline) {
    throw CodedError(
        error_code::kNoActiveCapture,
        "Linux updateAudioTargets lost the active audio pipeline before "
        "rebinding");
  }
  if (g_activeVideoConfig->audioMode != config.audioMode) {
    throw CodedError(
        error_code::kNoActiveCapture,
        "Linux updateAudioTargets active audio mode changed before rebinding");
  }
  ReplaceAudioPipelineLocked(config, patience);
  return *g_audioPipelineDescription;
}

void RecordSilence() {
  StartPatience patience;
  const CallerLock control(g_controlMutex, g_controlCallers);
  const CallerLock lock(g_mutex, g_captureCallers);
  if (!g_isCapturing.load()) {
    throw CodedError(error_code::kNoActiveCapture,
                     "silence requires an active capture pipeline");
  }
  CaptureConfig config = *g_activeVideoConfig;
  config.audioMode = "process";
  config.pipeWireTargetObjects.clear();
  config.audioSources.clear();
  g_activeVideoConfig->audioMode = config.audioMode;
  ReplaceAudioPipelineLocked(config, patience);
}

}  // namespace linux_capture
