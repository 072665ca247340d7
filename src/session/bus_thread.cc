#include "session/bus_thread.h"

#include <cerrno>
#include <ctime>
#include <mutex>

#include "base/gst_handles.h"
#include "delivery/lifecycle.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_picture_hold.h"
#include "state/capture_state.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

void OnBusError(GstMessage* message, const std::string& name) {
  GError* rawError = nullptr;
  gchar* rawDebug = nullptr;
  gst_message_parse_error(message, &rawError, &rawDebug);
  const GErrorPtr error(rawError);
  const GCharPtr debug(rawDebug);
  *g_lastGstBusError =
      name + ": " + (error ? error->message : "unknown GStreamer error");
  g_gstBusErrors.Add(1);
  EmitLifecycle("error", *g_lastGstBusError, g_width.Get(), g_height.Get());
}

void SleepOneRound() {
  timespec left{0, 100'000'000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

void PollBothPipelines() {
  const std::lock_guard lock(g_mutex);
  PostX11Failure(g_videoPipeline->get());
  PostRefusedPictures(g_videoPipeline->get());
  PostLostSources(g_videoPipeline->get());
  PostLostSources(g_audioPipeline->get());
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

}  // namespace linux_capture
