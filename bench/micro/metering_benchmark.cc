#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/audio_metering.h"

namespace linux_capture {
namespace {

// Ten milliseconds of stereo at 48 kHz, and a second of it.
constexpr int kBuffer = 960;
constexpr int kSecond = 96'000;

std::vector<std::int16_t> Sound(std::size_t count) {
  std::vector<std::int16_t> samples(count);
  std::uint32_t state = 1;
  for (std::int16_t& sample : samples) {
    state = state * 1'664'525 + 1'013'904'223;
    sample = static_cast<std::int16_t>(state >> 16);
  }
  return samples;
}

void MeterOfSamples(benchmark::State& state) {
  const auto samples = Sound(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(MeterSamples(samples));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MeterOfSamples)->Arg(kBuffer)->Arg(kSecond);

void MeterOfBytes(benchmark::State& state) {
  const auto samples = Sound(static_cast<std::size_t>(state.range(0)));
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(samples.data());
  for (auto _ : state) {
    benchmark::DoNotOptimize(MeterSampleBytes({bytes, 2 * samples.size()}));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MeterOfBytes)->Arg(kBuffer)->Arg(kSecond);

}  // namespace
}  // namespace linux_capture
