#include "audio/audio_metering.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#include "state/counters.h"

namespace linux_capture {
namespace {

// The pipeline's format is little-endian and is read as it lies in memory.
static_assert(std::endian::native == std::endian::little);

// So many samples at full scale still add up within 32 bits.
constexpr std::size_t kMeteredBlock = 8192;

// 32-bit sums without a branch: the compiler turns the loop into vector
// instructions.
void AddMeteredBlock(std::span<const std::int16_t> block,
                     AudioMetering& total) {
  std::uint32_t nonZero = 0;
  std::uint32_t sum = 0;
  std::int32_t peak = 0;
  std::uint32_t clipped = 0;
  for (const std::int16_t sample : block) {
    const std::int32_t wide = sample;
    const std::int32_t absolute = wide < 0 ? -wide : wide;
    nonZero += absolute != 0 ? 1U : 0U;
    sum += static_cast<std::uint32_t>(absolute);
    peak = absolute > peak ? absolute : peak;
    clipped += absolute >= kClippedFrom ? 1U : 0U;
  }
  total.sampleCount += block.size();
  total.nonZeroSamples += nonZero;
  total.absoluteSampleSum += sum;
  total.peakAbsoluteSample =
      std::max(total.peakAbsoluteSample, static_cast<std::uint32_t>(peak));
  total.clippedSamples += clipped;
}

}  // namespace

AudioMetering MeterSamples(std::span<const std::int16_t> samples) {
  AudioMetering total;
  while (!samples.empty()) {
    const std::size_t size = std::min(samples.size(), kMeteredBlock);
    AddMeteredBlock(samples.first(size), total);
    samples = samples.subspan(size);
  }
  return total;
}

AudioMetering MeterSampleBytes(std::span<const std::uint8_t> bytes) {
  std::array<std::int16_t, 1024> block;
  AudioMetering total;
  std::size_t left = bytes.size() / sizeof(std::int16_t);
  const std::uint8_t* from = bytes.data();
  while (left != 0) {
    const std::size_t size = std::min(left, block.size());
    std::memcpy(block.data(), from, size * sizeof(std::int16_t));
    AddMeteredBlock(std::span(block).first(size), total);
    from += size * sizeof(std::int16_t);
    left -= size;
  }
  return total;
}

void CountAudioPacket(const AudioPacket& packet) {
  const AudioMetering& metering = packet.metering;
  g_audioLastClippedSamples.Set(metering.clippedSamples);
  g_audioSamplesCaptured.Add(metering.sampleCount);
  g_audioPacketsCaptured.Add(1);
  g_audioNonZeroSamplesCaptured.Add(metering.nonZeroSamples);
  g_audioAbsoluteSampleSum.Add(metering.absoluteSampleSum);
  g_audioClippedSamplesCaptured.Add(metering.clippedSamples);
  g_audioPeakAbsoluteSample.RaiseTo(metering.peakAbsoluteSample);
  if (packet.timestampUs != 0) {
    g_firstAudioTimestampUs.SetIfZero(packet.timestampUs);
    g_lastAudioTimestampUs.Set(packet.timestampUs);
  }
  g_audioLastAbsoluteSampleSum.Set(metering.absoluteSampleSum);
  g_audioLastNonZeroSamples.Set(metering.nonZeroSamples);
  g_audioLastPeakAbsoluteSample.Set(metering.peakAbsoluteSample);
  g_audioLastPacketAtMs.Set(packet.enqueuedAtMs);

  if (metering.IsSilent()) {
    g_audioSilentPackets.Add(1);
    g_audioConsecutiveSilentPackets.Add(1);
    g_audioMaxConsecutiveSilentPackets.RaiseTo(
        g_audioConsecutiveSilentPackets.Get());
  } else {
    g_audioConsecutiveSilentPackets.Set(0);
    g_audioLastNonZeroAtMs.Set(packet.enqueuedAtMs);
  }
}

void CountAudioSourceBuffer(const AudioMetering& metering, std::uint64_t nowMs,
                            const std::string& caps, AudioSourceStats& stats) {
  stats.samplesCaptured += metering.sampleCount;
  ++stats.packetsCaptured;
  stats.nonZeroSamplesCaptured += metering.nonZeroSamples;
  stats.absoluteSampleSum += metering.absoluteSampleSum;
  stats.peakAbsoluteSample =
      std::max(stats.peakAbsoluteSample, metering.peakAbsoluteSample);
  stats.clippedSamplesCaptured += metering.clippedSamples;
  stats.lastNonZeroSamples = metering.nonZeroSamples;
  stats.lastAbsoluteSampleSum = metering.absoluteSampleSum;
  stats.lastPeakAbsoluteSample = metering.peakAbsoluteSample;
  stats.lastClippedSamples = metering.clippedSamples;
  stats.lastPacketAtMs = nowMs;
  if (metering.IsSilent()) {
    ++stats.silentPackets;
    ++stats.consecutiveSilentPackets;
    stats.maxConsecutiveSilentPackets = std::max(
        stats.maxConsecutiveSilentPackets, stats.consecutiveSilentPackets);
  } else {
    stats.consecutiveSilentPackets = 0;
    stats.lastNonZeroAtMs = nowMs;
  }
  if (!caps.empty()) stats.caps = caps;
}

}  // namespace linux_capture
