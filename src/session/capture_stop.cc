#include "session/capture_stop.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "launch_boundary/x11_guard.h"
#include "session/bus_thread.h"
#include "session/capture_session.h"
#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

void EndPipeline(GstElementPtr& pipeline) {
  if (!pipeline) return;
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  pipeline.reset();
}

void StopAtExit() {
  // The thread that ends the process may have interrupted a setup or stop on
  // another thread; waiting for that one for ever would hang the exit.
  for (int attempt = 0; attempt < 200; ++attempt) {
    if (g_controlMutex.try_lock()) {
      const MutexLock control(g_controlMutex, std::adopt_lock);
      StopCaptureUnderControl();
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

void StopCaptureUnderControl() {
  EndBusThread();

  const MutexLock lock(g_mutex);
  g_isCapturing.store(false);
  {
    // Audio goes down first, the reverse of the start. Once a pipeline is in
    // NULL no streaming thread can use its contexts any more.
    const X11CaptureScope scope;
    EndPipeline(*g_audioPipeline);
    EndPipeline(*g_videoPipeline);
  }
  EndX11Guard();
  g_videoSinkContexts->clear();
  g_audioProbeSinkContexts->clear();
  {
    const MutexLock statsLock(g_audioSourceStatsMutex);
    g_audioSourceStats->clear();
  }
  DestroyOpenH264Branches();
  const MutexLock statsLock(g_hardwareStatsMutex);
  g_hardwareBranchStats->clear();
}

void StopCaptureInternal() {
  const MutexLock control(g_controlMutex);
  StopCaptureUnderControl();
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
