#ifndef LINUX_CAPTURE_PROGRAMS_OPUS_OPUS_ENCODER_H_
#define LINUX_CAPTURE_PROGRAMS_OPUS_OPUS_ENCODER_H_

#include <opus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "common/frames.h"

namespace linux_capture::opus {

// Encodes stereo sound of 48,000 frames a second in packets of 20 ms. Of one
// thread.
class StereoEncoder {
 public:
  // The time is that of the packet's first sample.
  using Take =
      std::function<void(std::int64_t timestampUs, programs::Bytes packet)>;

  StereoEncoder(int bitsPerSecond, Take take);

  // Interleaved samples that were heard at that time. Where they do not follow
  // those before, what had no whole packet yet is filled up with silence, and
  // the next packet begins with these.
  void Add(std::int64_t timestampUs, std::span<const std::int16_t> samples);

 private:
  struct Deleter {
    void operator()(OpusEncoder* encoder) const noexcept {
      opus_encoder_destroy(encoder);
    }
  };

  [[nodiscard]] std::int64_t next_timestamp_us() const;
  void EncodeWhole();

  Take take_;
  std::unique_ptr<OpusEncoder, Deleter> encoder_;
  std::vector<std::int16_t> waiting_;
  // Of the first sample that waits.
  std::optional<std::int64_t> startUs_;
  std::vector<std::uint8_t> packet_;
};

}  // namespace linux_capture::opus

#endif  // LINUX_CAPTURE_PROGRAMS_OPUS_OPUS_ENCODER_H_
