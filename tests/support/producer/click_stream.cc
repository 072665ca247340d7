#include "click_stream.h"

#include <spa/param/audio/format-utils.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>

namespace linux_capture::producer {
namespace {

constexpr std::uint32_t kRate = 48'000;
constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kFrameBytes = kChannels * sizeof(float);
constexpr std::uint32_t kClickFrames = 480;
constexpr float kClickHertz = 2'000.0F;

float ClickSample(std::uint32_t frame) {
  return 0.8F * std::cos(2.0F * std::numbers::pi_v<float> * kClickHertz *
                         static_cast<float>(frame) / kRate);
}

float ToneSample(std::uint64_t frame, float hertz) {
  const auto second = static_cast<float>(frame % kRate) / kRate;
  return 0.25F * std::sin(2.0F * std::numbers::pi_v<float> * hertz * second);
}

}  // namespace

ClickStream::ClickStream(pw_loop* loop, const ProducerOptions& options,
                         std::function<void()> onClick)
    : loop_(loop),
      onClick_(std::move(onClick)),
      clickLeft_(pw_loop_add_event(loop, OnClickLeft, this)),
      intervalNs_(std::int64_t{options.clickEvery} * 1'000'000'000),
      toneHertz_(static_cast<float>(options.toneHertz)) {
  events_.version = PW_VERSION_STREAM_EVENTS;
  events_.process = OnProcess;
  const std::string name = options.name + "-click";
  stream_.reset(pw_stream_new_simple(
      loop, name.c_str(),
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                        "Playback", PW_KEY_NODE_NAME, name.c_str(), nullptr),
      &events_, this));
  if (!stream_) throw std::runtime_error("PipeWire cannot be reached");

  std::array<std::uint8_t, 1024> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), bytes.size());
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32;
  info.rate = kRate;
  info.channels = kChannels;
  info.position[0] = SPA_AUDIO_CHANNEL_FL;
  info.position[1] = SPA_AUDIO_CHANNEL_FR;
  std::array<const spa_pod*, 1> params = {
      spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT |
                                                  PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_RT_PROCESS);
  if (pw_stream_connect(stream_.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY, flags,
                        params.data(), params.size()) < 0) {
    throw std::runtime_error("the click stream cannot be offered");
  }
}

ClickStream::~ClickStream() {
  stream_.reset();
  pw_loop_destroy_source(loop_, clickLeft_);
}

void ClickStream::OnClickLeft(void* data, std::uint64_t) {
  static_cast<ClickStream*>(data)->onClick_();
}

void ClickStream::OnProcess(void* data) {
  static_cast<ClickStream*>(data)->FillBuffer();
}

void ClickStream::FillBuffer() {
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream_.get());
  if (buffer == nullptr) return;
  spa_data& data = buffer->buffer->datas[0];
  auto* samples = static_cast<float*>(data.data);
  if (samples == nullptr) return;
  std::uint32_t frames = data.maxsize / kFrameBytes;
  if (buffer->requested != 0) {
    frames = std::min(frames, static_cast<std::uint32_t>(buffer->requested));
  }

  const std::int64_t now = MonotonicNs();
  if (nextNs_ == 0) nextNs_ = now + intervalNs_;
  const bool isClick = intervalNs_ > 0 && now >= nextNs_;
  for (std::uint32_t frame = 0; frame < frames; ++frame) {
    float value = isClick && frame < kClickFrames ? ClickSample(frame) : 0.0F;
    if (toneHertz_ > 0) value = ToneSample(framesPlayed_++, toneHertz_);
    for (std::uint32_t channel = 0; channel < kChannels; ++channel) {
      *samples++ = value;
    }
  }
  data.chunk->offset = 0;
  data.chunk->stride = static_cast<std::int32_t>(kFrameBytes);
  data.chunk->size = frames * kFrameBytes;
  pw_stream_queue_buffer(stream_.get(), buffer);
  if (isClick) {
    nextNs_ += intervalNs_;
    pw_loop_signal_event(loop_, clickLeft_);
  }
}

}  // namespace linux_capture::producer
