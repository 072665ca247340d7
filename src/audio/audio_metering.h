#ifndef LINUX_CAPTURE_AUDIO_AUDIO_METERING_H_
#define LINUX_CAPTURE_AUDIO_AUDIO_METERING_H_

#include <cstdint>
#include <span>
#include <string>

#include "delivery/audio_packet.h"
#include "state/audio_source_stats.h"

namespace linux_capture {

// Absolute values from here on count as clipped.
inline constexpr std::int32_t kClippedFrom = 32760;

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

AudioMetering MeterSamples(std::span<const std::int16_t> samples);

// The same over bytes as GStreamer maps them, of any alignment; a trailing odd
// byte is ignored.
AudioMetering MeterSampleBytes(std::span<const std::uint8_t> bytes);

// Adds one metered packet to the process-wide audio counters. Called by the
// mixed sink's streaming thread only.
void CountAudioPacket(const AudioPacket& packet);

// Adds one metered buffer to a source's statistics; an empty `caps` keeps the
// caps already known. The caller guards `stats`.
void CountAudioSourceBuffer(const AudioMetering& metering, std::uint64_t nowMs,
                            const std::string& caps, AudioSourceStats& stats);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_AUDIO_AUDIO_METERING_H_
