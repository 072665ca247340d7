#include "audio/audio_pipeline.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "audio/audio_samples.h"
#include "base/coded_error.h"
#include "base/gst_handles.h"
#include "launch_boundary/buffer_copy.h"
#include "state/capture_state.h"

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

// Where the mix ends so far; used by the mixer's own thread alone.
struct MixEnd {
  GstClockTime time = GST_USECOND;
};

GstClockTime MixDuration(GstBuffer* buffer) {
  constexpr guint64 kBytesPerSecond = guint64{48'000} * 2 * 2;
  return gst_util_uint64_scale(gst_buffer_get_size(buffer), GST_SECOND,
                               kBytesPerSecond);
}

// The mixer's first buffer has the time zero, which reads as "no time": it
// would be replaced by the age of the machine, and every offset between sound
// and picture that starts from it would be off by that. And when it was due
// before there was any sound, the next one has the time zero again. (The
// mixer's own start-time is forgotten in that case.)
GstPadProbeReturn KeepMixInOrder(GstPad* /*pad*/, GstPadProbeInfo* info,
                                 gpointer data) {
  GstClockTime& end = static_cast<MixEnd*>(data)->time;
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
  const GstClockTime duration = MixDuration(buffer);
  if (GST_BUFFER_PTS(buffer) < end) {
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = end;
    GST_BUFFER_DURATION(buffer) = duration;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
  }
  end = GST_BUFFER_PTS(buffer) + duration;
  return GST_PAD_PROBE_OK;
}

void DeleteMixEnd(gpointer data) {
  const std::unique_ptr<MixEnd> owner(static_cast<MixEnd*>(data));
}

void OrderMix(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  const GstPadPtr pad(gst_element_get_static_pad(mixer.get(), "src"));
  if (!pad) return;
  gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, KeepMixInOrder,
                    std::make_unique<MixEnd>().release(), DeleteMixEnd);
}

}  // namespace

void AttachAudioPipelineCallbacksLocked(const CaptureConfig& config) {
  GstElement* pipeline = g_audioPipeline->get();
  OrderMix(pipeline);
  OutliveProducers(pipeline);
  const GstElementPtr mixedSink = FindElement(pipeline, "audioSink");
  if (!mixedSink) {
    throw CodedError(error_code::kPipelineInvalid,
                     "audio appsink was not created");
  }
  ConnectNewAudioSample(mixedSink.get(),
                        reinterpret_cast<GCallback>(&OnAudioSample), pipeline);

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
    ConnectNewAudioSample(probeSink.get(),
                          reinterpret_cast<GCallback>(&OnAudioProbeSample),
                          g_audioProbeSinkContexts->back().get());
  }
}

}  // namespace linux_capture
