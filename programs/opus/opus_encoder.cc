#include "opus/opus_encoder.h"

#include <cstdlib>
#include <stdexcept>

namespace linux_capture::opus {
namespace {

constexpr int kRate = 48'000;
constexpr int kChannels = 2;
constexpr int kPacketFrames = kRate / 50;
constexpr std::size_t kPacketSamples = std::size_t{kPacketFrames} * kChannels;
constexpr std::int64_t kPacketUs = 20'000;
// Rounding and the grain of the mixer stay below it.
constexpr std::int64_t kJumpUs = 15'000;
constexpr std::size_t kLongestPacket = 4'000;
// Some redundancy for the other side to conceal a lost packet with.
constexpr int kExpectedLossPercent = 5;

}  // namespace

StereoEncoder::StereoEncoder(int bitsPerSecond, Take take)
    : take_(std::move(take)), packet_(kLongestPacket) {
  int error = OPUS_OK;
  encoder_.reset(
      opus_encoder_create(kRate, kChannels, OPUS_APPLICATION_AUDIO, &error));
  if (!encoder_) throw std::runtime_error(opus_strerror(error));
  opus_encoder_ctl(encoder_.get(), OPUS_SET_BITRATE(bitsPerSecond));
  opus_encoder_ctl(encoder_.get(), OPUS_SET_INBAND_FEC(1));
  opus_encoder_ctl(encoder_.get(),
                   OPUS_SET_PACKET_LOSS_PERC(kExpectedLossPercent));
}

std::int64_t StereoEncoder::next_timestamp_us() const {
  const auto frames = static_cast<std::int64_t>(waiting_.size() / kChannels);
  return *startUs_ + frames * 1'000'000 / kRate;
}

void StereoEncoder::Add(std::int64_t timestampUs,
                        std::span<const std::int16_t> samples) {
  if (startUs_ && std::llabs(timestampUs - next_timestamp_us()) > kJumpUs) {
    if (!waiting_.empty()) waiting_.resize(kPacketSamples);
    EncodeWhole();
    startUs_.reset();
  }
  // Anew for each packet that begins with these samples, so that the clocks of
  // samples and of times cannot drift apart.
  if (!startUs_ || waiting_.empty()) startUs_ = timestampUs;
  waiting_.insert(waiting_.end(), samples.begin(), samples.end());
  EncodeWhole();
}

void StereoEncoder::EncodeWhole() {
  std::size_t position = 0;
  for (; waiting_.size() - position >= kPacketSamples;
       position += kPacketSamples) {
    const opus_int32 size =
        opus_encode(encoder_.get(), waiting_.data() + position, kPacketFrames,
                    packet_.data(), static_cast<opus_int32>(packet_.size()));
    if (size < 0) throw std::runtime_error(opus_strerror(size));
    take_(*startUs_, {packet_.data(), static_cast<std::size_t>(size)});
    *startUs_ += kPacketUs;
  }
  waiting_.erase(waiting_.begin(),
                 waiting_.begin() + static_cast<std::ptrdiff_t>(position));
}

}  // namespace linux_capture::opus
