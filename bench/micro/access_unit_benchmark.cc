#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "delivery/nal_scan.h"
#include "video_software/access_unit.h"

namespace linux_capture {
namespace {

// A small and a usual delta picture, and a large keyframe.
constexpr int kSmall = 1'000;
constexpr int kUsual = 20'000;
constexpr int kLarge = 400'000;

// One NAL unit of that size, its payload free of start codes as every NAL
// unit's is.
std::vector<std::uint8_t> NalUnit(std::uint8_t header, std::size_t size) {
  std::vector<std::uint8_t> unit = {0, 0, 0, 1, header};
  std::uint32_t state = 1;
  while (unit.size() < size) {
    state = state * 1'664'525 + 1'013'904'223;
    const auto byte = static_cast<std::uint8_t>(state >> 24);
    unit.push_back(byte < 4 ? std::uint8_t{4} : byte);
  }
  return unit;
}

constexpr std::uint8_t kDeltaSlice = 0x61;

// A delta picture is read to its end, a keyframe only up to its slice.
void ContainsIdrNalOfDelta(benchmark::State& state) {
  const auto unit =
      NalUnit(kDeltaSlice, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(ContainsIdrNal(unit.data(), unit.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ContainsIdrNalOfDelta)->Arg(kSmall)->Arg(kUsual)->Arg(kLarge);

void ScanTemporalIdOfDelta(benchmark::State& state) {
  const auto unit =
      NalUnit(kDeltaSlice, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(ScanTemporalId(unit.data(), unit.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ScanTemporalIdOfDelta)->Arg(kSmall)->Arg(kUsual)->Arg(kLarge);

// As the encoder hands it over: parameter sets in one layer, the slice in
// another.
void PacketAssembly(benchmark::State& state) {
  auto parameterSets = NalUnit(0x67, 40);
  auto slice = NalUnit(kDeltaSlice, static_cast<std::size_t>(state.range(0)));
  int parameterSetLengths[] = {24, 16};
  int sliceLengths[] = {static_cast<int>(slice.size())};
  SFrameBSInfo info{};
  info.iLayerNum = 2;
  info.sLayerInfo[0].iNalCount = 2;
  info.sLayerInfo[0].pNalLengthInByte = parameterSetLengths;
  info.sLayerInfo[0].pBsBuf = parameterSets.data();
  info.sLayerInfo[1].iNalCount = 1;
  info.sLayerInfo[1].pNalLengthInByte = sliceLengths;
  info.sLayerInfo[1].pBsBuf = slice.data();
  for (auto _ : state) {
    const AccessUnitSummary summary = SummariseAccessUnit(info);
    benchmark::DoNotOptimize(JoinAccessUnit(info, summary.size));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(PacketAssembly)->Arg(kSmall)->Arg(kUsual)->Arg(kLarge);

}  // namespace
}  // namespace linux_capture
