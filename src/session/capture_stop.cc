#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "audio/audio_pipeline.h"
#include "launch_boundary/pipeline_control.h"
#include "launch_boundary/resource_check.h"
#include "session/bus_thread.h"
#include "session/capture_session.h"
#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

using std::chrono::milliseconds;

// What pictures get when sound has used up all of it.
constexpr milliseconds kLeastPatience(200);

void EndVideoPipeline(ExpendableThread::Deadline deadline) REQUIRES(g_mutex) {
  const bool hadPipeline = *g_videoPipeline != nullptr;
  auto contexts =
      std::make_shared<std::vector<std::unique_ptr<VideoSinkContext>>>(
          std::exchange(*g_videoSinkContexts, {}));
  if (EndPipeline(*g_videoControl, *g_videoPipeline, deadline)) {
    if (hadPipeline) NoteEndedCapture(*g_activeVideoConfig);
    return;
  }
  for (const auto& context : *contexts) context->gate.Shut();
  (*g_videoControl)->Retire(std::move(contexts));
  g_videoControl->reset();
}

void StopAtExit() {
  // The thread that ends the process may have interrupted a setup or stop on
  // another thread; waiting for that one for ever would hang the exit.
  const WaitingCallers::Caller caller(g_controlCallers);
  for (int attempt = 0; attempt < 200; ++attempt) {
    if (g_controlMutex.try_lock()) {
      const MutexLock control(g_controlMutex, std::adopt_lock);
      StopCaptureInternal(kExitPatience);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

void StopCaptureInternal(std::chrono::milliseconds patience) {
  EndBusThread();

  const CallerLock lock(g_mutex, g_captureCallers);
  g_isCapturing.store(false);
  // Audio goes down first, the reverse of the start. Once a pipeline is in NULL
  // no streaming thread can use its contexts any more.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  ReleaseAudioPipelineLocked(deadline);
  EndVideoPipeline(
      std::max(deadline, std::chrono::steady_clock::now() + kLeastPatience));
  {
    const MutexLock statsLock(g_audioSourceStatsMutex);
    g_audioSourceStats->clear();
  }
  DestroyOpenH264Branches();
  const MutexLock statsLock(g_hardwareStatsMutex);
  g_hardwareBranchStats->clear();
}

void StopCaptureAtProcessExit() {
  // Registered at the first launch rather than at load, so that it runs before
  // the exit handlers of the libraries that the launch brought in.
  static const bool registered = [] {
    std::atexit(StopAtExit);
    return true;
  }();
  static_cast<void>(registered);
}

}  // namespace linux_capture
