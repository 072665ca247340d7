#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "audio/audio_metering.h"
#include "fuzz_input.h"

namespace {

using linux_capture::AudioMetering;
using linux_capture::AudioSourceStats;
using linux_capture::CountAudioSourceBuffer;
using linux_capture::kClippedFrom;
using linux_capture::MeterSampleBytes;
using linux_capture::MeterSamples;
using linux_capture::fuzz::Require;

// One sample after the other, in 64 bits.
AudioMetering PlainMetering(const std::vector<std::int16_t>& samples) {
  AudioMetering metering;
  for (const std::int64_t sample : samples) {
    const std::int64_t absolute = sample < 0 ? -sample : sample;
    ++metering.sampleCount;
    metering.nonZeroSamples += absolute != 0 ? 1U : 0U;
    metering.absoluteSampleSum += static_cast<std::uint64_t>(absolute);
    if (absolute > metering.peakAbsoluteSample) {
      metering.peakAbsoluteSample = static_cast<std::uint32_t>(absolute);
    }
    metering.clippedSamples += absolute >= kClippedFrom ? 1U : 0U;
  }
  return metering;
}

// Long enough for the sums of one block to be carried over to the next.
std::vector<std::uint8_t> Repeated(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongest = 40'000;
  std::vector<std::uint8_t> bytes;
  const std::size_t times = size == 0 ? 0 : 1 + data[0] * std::size_t{2};
  for (std::size_t i = 0; i < times && bytes.size() < kLongest; ++i) {
    bytes.insert(bytes.end(), data, data + size);
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  const std::vector<std::uint8_t> bytes = Repeated(data, size);
  std::vector<std::int16_t> samples(bytes.size() / 2);
  if (!samples.empty()) {
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
  }
  const AudioMetering expected = PlainMetering(samples);
  Require(MeterSamples(samples) == expected, "samples are metered one by one");
  Require(MeterSampleBytes(bytes) == expected, "bytes are metered as samples");

  std::vector<std::uint8_t> shifted(bytes.size() + 1);
  if (!bytes.empty()) {
    std::memcpy(shifted.data() + 1, bytes.data(), bytes.size());
  }
  Require(MeterSampleBytes({shifted.data() + 1, bytes.size()}) == expected,
          "bytes at an odd address are metered alike");
  Require(expected.IsSilent() == (expected.nonZeroSamples == 0),
          "silence has no sound");

  AudioSourceStats stats;
  for (std::uint64_t nowMs = 1; nowMs <= 2; ++nowMs) {
    CountAudioSourceBuffer(expected, nowMs, {}, stats);
  }
  Require(stats.packetsCaptured == 2 &&
              stats.samplesCaptured == 2 * expected.sampleCount &&
              stats.absoluteSampleSum == 2 * expected.absoluteSampleSum &&
              stats.consecutiveSilentPackets == (expected.IsSilent() ? 2U : 0U),
          "the counters add up");
  return 0;
}
