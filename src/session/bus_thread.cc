#include "session/bus_thread.h"

#include <chrono>
#include <condition_variable>

#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/no_destroy.h"
#include "delivery/lifecycle.h"
#include "launch_boundary/source_restart.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_picture_hold.h"
#include "launch_boundary/x11_stall.h"
#include "state/capture_state.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

void OnBusError(GstMessage* message, const std::string& name)
    REQUIRES(g_mutex) {
  GError* rawError = nullptr;
  gchar* rawDebug = nullptr;
  gst_message_parse_error(message, &rawError, &rawDebug);
  const GErrorPtr error(rawError);
  const GCharPtr debug(rawDebug);
  *g_lastGstBusError =
      name + ": " + (error ? error->message : "unknown GStreamer error");
  g_gstBusErrors.Add(1);
  EmitError(*g_lastGstBusError, CodeOfElementError(message), g_width.Get(),
            g_height.Get());
}

// Cuts a sleep short at the stop. A leaf: nothing else is taken under it. Never
// destroyed, because a process may end while the thread sleeps.
Mutex g_busRoundMutex;
NoDestroy<std::condition_variable_any> g_busThreadEnds;

void SleepOneRound() {
  constexpr auto kRound = std::chrono::milliseconds(100);
  const MutexLock lock(g_busRoundMutex);
  g_busThreadEnds->wait_for(g_busRoundMutex, kRound,
                            [] { return !g_busThreadRunning.load(); });
}

void PollBothPipelines() {
  const MutexLock lock(g_mutex);
  PostX11Failure(g_videoPipeline->get());
  const char* const refused = PostRefusedPictures(g_videoPipeline->get());
  const char* const stalled = PostX11Stall(g_videoPipeline->get());
  const char* const unanswered = PostLostSources(g_videoPipeline->get());
  PostLostSources(g_audioPipeline->get());
  g_interruption.Set(stalled != nullptr   ? stalled
                     : refused != nullptr ? refused
                                          : unanswered);
  RestartPausedSources(g_videoPipeline->get());
  RestartPausedSources(g_audioPipeline->get());
  PollBus(g_videoPipeline->get(), "video");
  PollBus(g_audioPipeline->get(), "audio");
}

}  // namespace

void PollBus(GstElement* pipeline, const std::string& name) {
  if (pipeline == nullptr) return;
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  if (!bus) return;
  constexpr auto kWanted =
      static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
  while (
      const GstMessagePtr message{gst_bus_pop_filtered(bus.get(), kWanted)}) {
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ERROR) {
      OnBusError(message.get(), name);
    } else {
      g_gstBusEos.Add(1);
      EmitLifecycle("stopped", name + " eos", g_width.Get(), g_height.Get());
    }
  }
}

void BusThread() {
  while (g_busThreadRunning.load()) {
    try {
      PollBothPipelines();
    } catch (...) {
      // Out of memory for an event; the next round tries again.
    }
    SleepOneRound();
  }
}

void EndBusThread() {
  {
    // Under the mutex, or the flag could be cleared between a sleeper's look
    // at it and its sleep.
    const MutexLock lock(g_busRoundMutex);
    g_busThreadRunning.exchange(false);
  }
  g_busThreadEnds->notify_all();
  if (g_busThread->joinable()) g_busThread->join();
  g_interruption.Set(nullptr);
}

}  // namespace linux_capture
