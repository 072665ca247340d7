#ifndef LINUX_CAPTURE_DELIVERY_AUDIO_PACKET_H_
#define LINUX_CAPTURE_DELIVERY_AUDIO_PACKET_H_

#include <cstdint>
#include <vector>

namespace linux_capture {

// How loud one buffer is. The absolute value of -32768 is 32768.
struct AudioMetering {
  std::uint64_t sampleCount = 0;
  std::uint64_t nonZeroSamples = 0;
  std::uint64_t absoluteSampleSum = 0;
  std::uint32_t peakAbsoluteSample = 0;
  std::uint64_t clippedSamples = 0;

  [[nodiscard]] bool IsSilent() const noexcept {
    return nonZeroSamples == 0 && absoluteSampleSum == 0 &&
           peakAbsoluteSample == 0;
  }
  friend bool operator==(const AudioMetering&, const AudioMetering&) = default;
};

// One buffer of the mixed audio on its way to JavaScript: interleaved signed
// 16-bit samples, 48 kHz, stereo, with its metering.
struct AudioPacket {
  std::vector<std::int16_t> samples;
  std::uint64_t timestampUs = 0;  // session clock
  std::uint64_t rawPtsUs = 0;     // 0 = none
  std::uint64_t rawDtsUs = 0;     // 0 = none
  std::uint64_t durationUs = 0;
  std::uint64_t enqueuedAtMs = 0;  // wall clock
  std::int32_t channels = 2;
  std::int32_t sampleRate = 48000;
  AudioMetering metering;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_AUDIO_PACKET_H_
