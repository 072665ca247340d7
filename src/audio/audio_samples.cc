#include "audio/audio_samples.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "audio/audio_metering.h"
#include "base/clock.h"
#include "base/gst_handles.h"
#include "delivery/audio_packet.h"
#include "delivery/buffer_timing.h"
#include "delivery/callbacks.h"
#include "state/audio_source_stats.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

void CopyAudioSamples(const ReadableBuffer& bytes, AudioPacket& packet) {
  packet.samples.resize(bytes.size() / sizeof(std::int16_t));
  if (packet.samples.empty()) return;
  std::memcpy(packet.samples.data(), bytes.data(),
              packet.samples.size() * sizeof(std::int16_t));
}

struct MixedAudio {
  std::unique_ptr<AudioPacket> packet;  // null when nothing could be read
  std::string caps;
};

MixedAudio MixedAudioOf(const GstSamplePtr& sample, GstElement* pipeline) {
  GstBuffer* buffer = gst_sample_get_buffer(sample.get());
  if (buffer == nullptr) return {};
  const ReadableBuffer bytes(buffer);
  if (!bytes.ok()) return {};

  auto packet = std::make_unique<AudioPacket>();
  CopyAudioSamples(bytes, *packet);
  const BufferTiming timing =
      ReadBufferTiming(buffer, pipeline,
                       AudioDurationUs(packet->samples.size(), packet->channels,
                                       packet->sampleRate));
  packet->timestampUs = timing.timestampUs;
  packet->rawPtsUs = timing.ptsUs;
  packet->rawDtsUs = timing.dtsUs;
  packet->durationUs = timing.durationUs;
  packet->enqueuedAtMs = WallClockMs();
  std::string caps = SampleCapsString(sample.get());
  packet->metering = MeterSamples(packet->samples);
  return {std::move(packet), std::move(caps)};
}

void StoreAudioCaps(std::string caps) {
  if (caps.empty()) return;
  const MutexLock lock(g_capsMutex);
  *g_lastAudioCaps = std::move(caps);
}

// Audio needs no recovery after a refused packet: every packet stands alone.
void EmitAudioPacket(std::unique_ptr<AudioPacket> packet) {
  switch (g_audioCallback.Queue(std::move(packet))) {
    case QueueResult::kNoCallback:
      break;
    case QueueResult::kAccepted:
      g_audioBridgeQueuedPackets.Add(1);
      break;
    case QueueResult::kRefused:
      g_audioBridgeDroppedPackets.Add(1);
      break;
  }
}

GstFlowReturn DeliverMixedAudio(const GstSamplePtr& sample,
                                GstElement* pipeline) {
  MixedAudio audio = MixedAudioOf(sample, pipeline);
  if (!audio.packet) return GST_FLOW_ERROR;
  CountAudioPacket(*audio.packet);
  StoreAudioCaps(std::move(audio.caps));
  EmitAudioPacket(std::move(audio.packet));
  return GST_FLOW_OK;
}

GstFlowReturn MeterProbeSample(GstSamplePtr owned,
                               const AudioProbeSinkContext& context) {
  AudioMetering metering;
  std::string caps;
  std::uint64_t nowMs = 0;
  {
    const GstSamplePtr sample(std::move(owned));
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    if (buffer == nullptr) return GST_FLOW_ERROR;
    const ReadableBuffer bytes(buffer);
    if (!bytes.ok()) return GST_FLOW_ERROR;
    metering = MeterSampleBytes({bytes.data(), bytes.size()});
    caps = SampleCapsString(sample.get());
    nowMs = WallClockMs();
  }
  const MutexLock lock(g_audioSourceStatsMutex);
  if (context.sourceIndex < g_audioSourceStats->size()) {
    CountAudioSourceBuffer(metering, nowMs, caps,
                           (*g_audioSourceStats)[context.sourceIndex]);
  }
  return GST_FLOW_OK;
}

}  // namespace

std::uint64_t AudioDurationUs(std::size_t sampleCount, std::int32_t channels,
                              std::int32_t sampleRate) {
  if (channels <= 0 || sampleRate <= 0) return 0;
  return static_cast<std::uint64_t>(std::llround(
      static_cast<double>(sampleCount) / channels * 1'000'000.0 / sampleRate));
}

GstFlowReturn OnAudioSample(GstAppSink* sink, AudioSinkContext* context) {
  const GstSamplePtr sample(gst_app_sink_pull_sample(sink));
  if (!sample) return GST_FLOW_ERROR;
  if (context == nullptr) return DeliverMixedAudio(sample, nullptr);
  const DeliveryGate::Pass pass(context->gate);
  return pass ? DeliverMixedAudio(sample, context->pipeline)
              : GST_FLOW_FLUSHING;
}

GstFlowReturn OnAudioProbeSample(GstAppSink* sink,
                                 AudioProbeSinkContext* context) {
  if (context == nullptr) return GST_FLOW_ERROR;
  GstSamplePtr sample(gst_app_sink_pull_sample(sink));
  if (!sample) return GST_FLOW_ERROR;
  const DeliveryGate::Pass pass(context->gate);
  return pass ? MeterProbeSample(std::move(sample), *context)
              : GST_FLOW_FLUSHING;
}

}  // namespace linux_capture
