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
