#include "audio/audio_pipeline.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "audio/audio_samples.h"
#include "base/gst_handles.h"
#include "session/capture_state.h"
#include "session/source_memory.h"

namespace linux_capture {
namespace {

// No destroy notifier: `userData` outlives the connection.
//
// By default the sinks hold back their first buffer until all of them have one.
// With two sources that can be for ever: the sink of the mix holds back the
// mixer, which then does not answer the question about memory that the slower
// source asks before its first buffer, for which the others wait. The capture
// was set up after five seconds then and had no sound.
void ConnectNewAudioSample(GstElement* sink, GCallback callback,
                           gpointer userData) {
  g_object_set(sink, "async", FALSE, nullptr);
  g_signal_connect_data(sink, "new-sample", callback, userData, nullptr,
                        static_cast<GConnectFlags>(0));
}

// The mixer's first buffer would have the time zero, which reads as "no time":
// it would be replaced by the age of the machine, and every offset between
// sound and picture that starts from it would be off by that.
void StartMixAfterZero(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer ||
      g_object_class_find_property(G_OBJECT_GET_CLASS(mixer.get()),
                                   "start-time-selection") == nullptr) {
    return;
  }
  gst_util_set_object_arg(G_OBJECT(mixer.get()), "start-time-selection", "set");
  g_object_set(mixer.get(), "start-time", guint64{GST_MSECOND}, nullptr);
}

}  // namespace

void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config) {
  GstElement* pipeline = g_audioPipeline->get();
  StartMixAfterZero(pipeline);
  OutliveProducers(pipeline);
  const GstElementPtr mixedSink = FindElement(pipeline, "audioSink");
  if (!mixedSink) throw std::runtime_error("audio appsink was not created");
  ConnectNewAudioSample(mixedSink.get(),
                        reinterpret_cast<GCallback>(&OnAudioSample), pipeline);

  for (std::size_t i = 0; i < config.pipeWireTargetObjects.size(); ++i) {
    const std::string name = "audioProbeSink" + std::to_string(i);
    const GstElementPtr probeSink = FindElement(pipeline, name);
    if (!probeSink) {
      throw std::runtime_error("audio probe appsink was not created: " + name);
    }
    // The list owns the context before the sink can use it.
    g_audioProbeSinkContexts->push_back(
        std::make_unique<AudioProbeSinkContext>(AudioProbeSinkContext{i}));
    ConnectNewAudioSample(probeSink.get(),
                          reinterpret_cast<GCallback>(&OnAudioProbeSample),
                          g_audioProbeSinkContexts->back().get());
  }
}

}  // namespace linux_capture
