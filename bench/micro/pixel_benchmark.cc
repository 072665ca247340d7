#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pixels/area_scaling.h"
#include "pixels/pixel_routines.h"
#include "pixels/screen_conversion.h"

namespace linux_capture {
namespace {

// A screen's picture, and the sizes that it is made smaller to.
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

std::vector<std::uint8_t> Noise(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1'664'525 + 1'013'904'223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

void Conversion(benchmark::State& state, const PixelRoutines& routines) {
  constexpr std::ptrdiff_t kChromaWidth = kWidth / 2;
  const auto pixels = Noise(std::size_t{kWidth} * kHeight * 4);
  std::vector<std::uint8_t> y(std::size_t{kWidth} * kHeight);
  std::vector<std::uint8_t> u(y.size() / 4);
  std::vector<std::uint8_t> v(y.size() / 4);
  for (auto _ : state) {
    ConvertScreenToI420({.pixels = pixels.data(),
                         .stride = std::ptrdiff_t{kWidth} * 4,
                         .width = kWidth,
                         .height = kHeight,
                         .order = {2, 1, 0}},
                        {.y = y.data(),
                         .u = u.data(),
                         .v = v.data(),
                         .yStride = kWidth,
                         .uStride = kChromaWidth,
                         .vStride = kChromaWidth},
                        routines);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void Scaling(benchmark::State& state, const PixelRoutines& routines,
             PlaneSize to) {
  const auto from = Noise(std::size_t{kWidth} * kHeight);
  std::vector<std::uint8_t> out(from.size());
  AreaScaler scaler({.width = kWidth, .height = kHeight}, to, routines);
  for (auto _ : state) {
    scaler.Scale(from.data(), kWidth, out.data(), to.width);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

// For every kind of instructions that this machine can run.
const bool kAreRegistered = [] {
  for (const PixelRoutines* routines : RunnableRoutines()) {
    const std::string name = routines->name;
    benchmark::RegisterBenchmark(("Conversion/" + name).c_str(), Conversion,
                                 *routines);
    for (const PlaneSize to :
         {PlaneSize{1280, 720}, PlaneSize{960, 540}, PlaneSize{480, 270}}) {
      benchmark::RegisterBenchmark(
          ("Scaling/" + name + "/" + std::to_string(to.width)).c_str(), Scaling,
          *routines, to);
    }
  }
  return true;
}();

}  // namespace
}  // namespace linux_capture
