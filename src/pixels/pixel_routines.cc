// The vector routines of every kind of processor from one text: the library has
// this very file included once more for each, which is why it stays out of the
// unity build.
#include "pixels/pixel_routines.h"

// Nothing but the instructions that are asked for below. Vectors of 64 bytes
// would gain little where the time goes into reading memory, and they slow down
// the older processors that have them.
#define HWY_DISABLE_BMI2_FMA
#define HWY_DISABLE_F16C
#define HWY_DISABLE_PCLMUL_AES
#if defined(__x86_64__)
#define HWY_DISABLED_TARGETS (HWY_AVX2 - 1)
#elif defined(__aarch64__)
#define HWY_DISABLED_TARGETS (HWY_NEON - 1)
#define HWY_COMPILE_ONLY_STATIC
#else
#define HWY_COMPILE_ONLY_SCALAR
#endif

#define HWY_TARGET_INCLUDE "pixels/pixel_routines.cc"
// In this order: the first says for what the second is.
// clang-format off
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// clang-format on

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
#include "pixels/area_spans-inl.h"
#include "pixels/conversion_rows-inl.h"

namespace linux_capture::HWY_NAMESPACE {
namespace {

// The name without the "N_" of the namespace.
constexpr PixelRoutines kRoutines = {.name = &HWY_STR(HWY_NAMESPACE)[2],
                                     .convertRowPair = ConvertRowPair,
                                     .weighRows = WeighRows,
                                     .weighColumns = WeighColumns};

}  // namespace
}  // namespace linux_capture::HWY_NAMESPACE
#endif

#if HWY_ONCE

namespace linux_capture {

std::vector<const PixelRoutines*> RunnableRoutines() {
  std::vector<const PixelRoutines*> runnable;
#if HWY_TARGETS & HWY_AVX2
  if (__builtin_cpu_supports("avx2")) runnable.push_back(&N_AVX2::kRoutines);
#endif
#if HWY_TARGETS & HWY_SSE4
  if (__builtin_cpu_supports("sse4.2")) runnable.push_back(&N_SSE4::kRoutines);
#endif
#if HWY_TARGETS & HWY_SSSE3
  if (__builtin_cpu_supports("ssse3")) runnable.push_back(&N_SSSE3::kRoutines);
#endif
#if HWY_STATIC_TARGET != HWY_SCALAR && HWY_STATIC_TARGET != HWY_EMU128 && \
    !(HWY_STATIC_TARGET & (HWY_AVX2 | HWY_SSE4 | HWY_SSSE3))
  runnable.push_back(&HWY_STATIC_DISPATCH(kRoutines));
#endif
  return runnable;
}

const PixelRoutines* VectorRoutines() {
#ifdef LINUX_CAPTURE_STOCK_PIXELS
  return nullptr;
#else
  static const PixelRoutines* const kBest = [] {
    const auto runnable = RunnableRoutines();
    return runnable.empty() ? nullptr : runnable.front();
  }();
  return kBest;
#endif
}

}  // namespace linux_capture

#endif  // HWY_ONCE
