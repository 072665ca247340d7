#include "video_stream.h"

#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/format.h>
#include <spa/pod/builder.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace linux_capture::producer {
namespace {

constexpr std::uint32_t kBytesPerPixel = 4;
constexpr std::size_t kPodBytes = 1024;

std::uint32_t SpaFormat(const std::string& format) {
  if (format == "BGRA") return SPA_VIDEO_FORMAT_BGRA;
  if (format == "RGBx") return SPA_VIDEO_FORMAT_RGBx;
  if (format == "RGBA") return SPA_VIDEO_FORMAT_RGBA;
  return SPA_VIDEO_FORMAT_BGRx;
}

void AddRates(spa_pod_builder* builder, const ProducerOptions& options) {
  const spa_fraction fastest{options.fps, 1};
  const spa_fraction slowest{1, 1};
  const spa_fraction variable{0, 1};
  switch (options.rateOffer) {
    case RateOffer::kFixed:
      spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_framerate,
                          SPA_POD_Fraction(&fastest), 0);
      break;
    case RateOffer::kVariable:
      spa_pod_builder_add(
          builder, SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&variable),
          SPA_FORMAT_VIDEO_maxFramerate,
          SPA_POD_CHOICE_RANGE_Fraction(&fastest, &slowest, &fastest), 0);
      break;
    case RateOffer::kRange:
      spa_pod_builder_add(
          builder, SPA_FORMAT_VIDEO_framerate,
          SPA_POD_CHOICE_RANGE_Fraction(&fastest, &slowest, &fastest), 0);
      break;
  }
}

const spa_pod* BuildFormat(spa_pod_builder* builder,
                           const ProducerOptions& options) {
  const spa_rectangle size{options.width, options.height};
  spa_pod_frame frame{};
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_Format,
                              SPA_PARAM_EnumFormat);
  spa_pod_builder_add(
      builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
      SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
      SPA_FORMAT_VIDEO_format, SPA_POD_Id(SpaFormat(options.format)),
      SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), 0);
  AddRates(builder, options);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame));
}

}  // namespace

VideoStream::VideoStream(pw_loop* loop, const ProducerOptions& options)
    : loop_(loop),
      options_(options),
      frame_(options.width, options.height, options.format),
      stride_(options.width * kBytesPerPixel),
      fps_(options.fps) {
  events_.version = PW_VERSION_STREAM_EVENTS;
  events_.state_changed = OnStateChanged;
  events_.param_changed = OnParamChanged;
  events_.process = OnProcess;
  stream_.reset(pw_stream_new_simple(
      loop_, options_.name.c_str(),
      pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME,
                        options_.name.c_str(), nullptr),
      &events_, this));
  if (!stream_) throw std::runtime_error("PipeWire cannot be reached");
  timer_ = pw_loop_add_timer(loop_, OnTimer, this);
  Connect();
}

VideoStream::~VideoStream() {
  stream_.reset();
  pw_loop_destroy_source(loop_, timer_);
}

void VideoStream::Connect() {
  std::array<std::uint8_t, kPodBytes> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), bytes.size());
  std::array<const spa_pod*, 1> params = {BuildFormat(&builder, options_)};
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER |
                                                  PW_STREAM_FLAG_MAP_BUFFERS);
  if (pw_stream_connect(stream_.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY, flags,
                        params.data(), params.size()) < 0) {
    throw std::runtime_error("the video stream cannot be offered");
  }
}

void VideoStream::Resize(std::uint32_t width, std::uint32_t height) {
  options_.width = width;
  options_.height = height;
  stride_ = width * kBytesPerPixel;
  OfferAnew();
}

void VideoStream::Reformat(const std::string& format) {
  options_.format = format;
  OfferAnew();
}

void VideoStream::OfferAnew() {
  frame_ = NumberedFrame(options_.width, options_.height, options_.format);
  std::array<std::uint8_t, kPodBytes> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), bytes.size());
  std::array<const spa_pod*, 1> params = {BuildFormat(&builder, options_)};
  pw_stream_update_params(stream_.get(), params.data(), params.size());
}

void VideoStream::OnStateChanged(void* data, pw_stream_state,
                                 pw_stream_state state, const char* error) {
  auto* self = static_cast<VideoStream*>(data);
  self->isStreaming_ = state == PW_STREAM_STATE_STREAMING;
  self->SetTimer(self->isStreaming_);
  std::printf("video %s node=%u%s%s\n", pw_stream_state_as_string(state),
              pw_stream_get_node_id(self->stream_.get()),
              error == nullptr ? "" : " ", error == nullptr ? "" : error);
}

void VideoStream::OnParamChanged(void* data, std::uint32_t id,
                                 const spa_pod* param) {
  if (param == nullptr || id != SPA_PARAM_Format) return;
  auto* self = static_cast<VideoStream*>(data);
  spa_video_info_raw info{};
  if (spa_format_video_raw_parse(param, &info) < 0) return;
  const spa_fraction rate =
      info.framerate.num != 0 ? info.framerate : info.max_framerate;
  if (rate.num != 0 && rate.denom != 0) self->fps_ = rate.num / rate.denom;
  std::printf("negotiated rate=%u/%u fps=%u\n", info.framerate.num,
              info.framerate.denom, self->fps_);
  self->AnswerFormat();
}

void VideoStream::AnswerFormat() {
  std::array<std::uint8_t, kPodBytes> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), bytes.size());
  const auto stride = static_cast<std::int32_t>(stride_);
  const auto size = static_cast<std::int32_t>(stride_ * options_.height);
  std::array<const spa_pod*, 2> params{};
  params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
      SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(8, 2, 16),
      SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
      SPA_POD_Int(size), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride),
      SPA_PARAM_BUFFERS_dataType,
      SPA_POD_CHOICE_FLAGS_Int(1 << SPA_DATA_MemFd)));
  params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
      SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size,
      SPA_POD_Int(static_cast<std::int32_t>(sizeof(spa_meta_header)))));
  pw_stream_update_params(stream_.get(), params.data(),
                          options_.hasTimestamps ? 2 : 1);
}

void VideoStream::SetTimer(bool isRunning) {
  timespec first{};
  timespec period{};
  if (isRunning) {
    first.tv_nsec = 1;
    if (fps_ == 1) {
      period.tv_sec = 1;
    } else {
      period.tv_nsec = 1'000'000'000 / static_cast<long>(fps_);
    }
  }
  pw_loop_update_timer(loop_, timer_, &first, &period, false);
}

void VideoStream::OnTimer(void* data, std::uint64_t) {
  auto* self = static_cast<VideoStream*>(data);
  if (self->isSending_) self->SendFrame();
}

void VideoStream::Flash() {
  constexpr int kFlashPictures = 6;
  flashesLeft_ = kFlashPictures;
  SendFrame();
}

void VideoStream::SendFrame() {
  if (isStreaming_) pw_stream_trigger_process(stream_.get());
}

void VideoStream::OnProcess(void* data) {
  static_cast<VideoStream*>(data)->FillBuffer();
}

void VideoStream::FillBuffer() {
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream_.get());
  if (buffer == nullptr) {
    std::printf("no free buffer\n");
    return;
  }
  spa_data& data = buffer->buffer->datas[0];
  if (data.data == nullptr) return;
  // Buffers of the size before, while another one is agreed on.
  if (data.maxsize < stride_ * options_.height) {
    pw_stream_queue_buffer(stream_.get(), buffer);
    return;
  }
  const std::int64_t now = MonotonicNs();
  frame_.Draw(static_cast<std::uint8_t*>(data.data), stride_,
              static_cast<std::uint16_t>(sequence_), flashesLeft_ > 0);
  auto* header = static_cast<spa_meta_header*>(spa_buffer_find_meta_data(
      buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header != nullptr) {
    header->pts = now + shiftNs_;
    header->flags = 0;
    header->seq = sequence_;
    header->dts_offset = 0;
  }
  data.chunk->offset = 0;
  data.chunk->size = stride_ * options_.height;
  data.chunk->stride = static_cast<std::int32_t>(stride_);
  pw_stream_queue_buffer(stream_.get(), buffer);
  if (!isSending_) {
    std::printf("sent %llu at=%lld\n",
                static_cast<unsigned long long>(sequence_),
                static_cast<long long>(now / 1000));
  }
  if (flashesLeft_ > 0) --flashesLeft_;
  ++sequence_;
}

}  // namespace linux_capture::producer
