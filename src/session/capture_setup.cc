#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "audio/audio_pipeline.h"
#include "base/coded_error.h"
#include "base/gst_callback.h"
#include "base/gst_init.h"
#include "base/stage_log.h"
#include "delivery/lifecycle.h"
#include "launch_boundary/close_on_exec.h"
#include "launch_boundary/pipeline_control.h"
#include "launch_boundary/resource_check.h"
#include "session/bus_thread.h"
#include "session/capture_session.h"
#include "state/capture_state.h"
#include "stats/stats_reset.h"
#include "video_hardware/encoded_sample.h"
#include "video_hardware/hardware_pipeline_text.h"
#include "video_hardware/hardware_selection.h"
#include "video_hardware/provider_probe.h"
#include "video_software/openh264_branches.h"
#include "video_software/raw_frame_encoding.h"
#include "video_software/raw_pipeline_text.h"

namespace linux_capture {
namespace {

// An earlier capture that does not end is given up, so that this one can begin.
constexpr std::chrono::milliseconds kPreviousStopPatience(1'000);
// What is left of a start that failed.
constexpr std::chrono::milliseconds kFailedStopPatience(500);

bool WantsHardware(const CaptureConfig& config) {
  return config.encoderRequirement == "hardware";
}

bool WantsAudio(const CaptureConfig& config) {
  return config.audioMode == "system" || config.audioMode == "auto" ||
         config.audioMode == "process";
}

PipelineKind VideoPipelineKind(const CaptureConfig& config) {
  if (WantsHardware(config)) return PipelineKind::kHardware;
  return config.backend == "x11" ? PipelineKind::kX11
                                 : PipelineKind::kScreenCast;
}

void BuildVideoDescription(const CaptureConfig& config) REQUIRES(g_mutex) {
  if (WantsHardware(config)) {
    SelectHardwareProvider(config);
    *g_videoPipelineDescription =
        BuildHardwareVideoPipeline(config, *g_activeHardwareProfile);
    LogCaptureStage("captureSetup:hardware-video-pipeline-built");
    return;
  }
  LogCaptureStage("captureSetup:openh264-init:begin");
  InitializeOpenH264Branches(config);
  *g_videoPipelineDescription = BuildOpenH264VideoPipeline(config);
  LogCaptureStage("captureSetup:openh264-video-pipeline-built");
}

void LaunchVideo(const CaptureConfig& config, const StartPatience& patience)
    REQUIRES(g_mutex) {
  LogCaptureStage("captureSetup:video-pipeline-launch:begin");
  // Sound never comes alone: this counts what it takes too.
  RequireThreads(config);
  *g_videoControl =
      std::make_unique<PipelineControl>("video", VideoPipelineKind(config));
  (*g_videoControl)
      ->Launch(*g_videoPipelineDescription, config, patience, *g_videoPipeline);
  LogCaptureStage("captureSetup:video-pipeline-launch:complete");
}

void AttachVideoCallbacks(const CaptureConfig& config) REQUIRES(g_mutex) {
  g_videoSinkContexts->clear();
  const auto connect = WantsHardware(config)
                           ? ConnectSignal<&OnEncodedVideoSample>
                           : ConnectSignal<&OnVideoSample>;
  for (const VideoBranchConfig& branch : config.branches) {
    const std::string name = "videoSink" + std::to_string(branch.branchIndex);
    const GstElementPtr sink = FindElement(g_videoPipeline->get(), name);
    if (!sink) {
      // Untested: the text that the module itself builds has every sink.
      throw CodedError(error_code::kPipelineInvalid,
                       name + " appsink was not created");
    }
    auto context = std::make_unique<VideoSinkContext>();
    context->branchIndex = branch.branchIndex;
    context->width = branch.width;
    context->height = branch.height;
    context->fps = branch.fps;
    context->pipeline = g_videoPipeline->get();
    connect(sink.get(), "new-sample", context.get());
    g_videoSinkContexts->push_back(std::move(context));
  }
  LogCaptureStage("captureSetup:video-callbacks-attached");
}

void PlayBothPipelines(StartPatience& patience) REQUIRES(g_mutex) {
  (*g_videoControl)->Play(g_videoPipeline->get(), patience);
  if (*g_audioPipeline) {
    (*g_audioControl)->Play(g_audioPipeline->get(), patience);
  }
}

void SetUpCapture(const CaptureConfig& config, StartPatience& patience)
    REQUIRES(g_controlMutex) EXCLUDES(g_mutex) {
  StopCaptureInternal(kPreviousStopPatience);
  patience.KeepLeast();
  LogCaptureStage("captureSetup:previous-capture-stopped");
  InitializeGStreamer();
  LogCaptureStage("captureSetup:gst-init-complete");
  ResetForNewSession(config);
  RenewProviderProbeReports();
  LogCaptureStage("captureSetup:stats-reset-complete");

  const CallerLock lock(g_mutex, g_captureCallers);
  LogCaptureStage("captureSetup:mutex-acquired");
  SetActiveVideoConfig(config);
  const ExecGuard execGuard;
  BuildVideoDescription(config);
  LaunchVideo(config, patience);
  StopCaptureAtProcessExit();
  AttachVideoCallbacks(config);
  if (WantsAudio(config)) {
    LaunchAudioPipelineLocked(config, patience, LogCaptureStage);
  }
  PlayBothPipelines(patience);
  g_isCapturing.store(true);
  LogCaptureStage("captureSetup:capturing-flag-set");
  g_busThreadRunning.store(true);
  *g_busThread = std::thread(BusThread);
  LogCaptureStage("captureSetup:bus-thread-started");
  EmitLifecycle("ready",
                config.backend == "x11" ? "linux-x11-capture-started"
                                        : "linux-pipewire-capture-started",
                config.width, config.height);
  LogCaptureStage("captureSetup:ready-emitted");
}

}  // namespace

void StartCapture(const CaptureConfig& config, StartPatience& patience) {
  try {
    SetUpCapture(config, patience);
  } catch (const std::exception& error) {
    LogCaptureStage(std::string("captureSetup:error:") + error.what());
    // By whoever has the control still: the next may start another one.
    StopCaptureInternal(kFailedStopPatience);
    throw;
  }
}

}  // namespace linux_capture
