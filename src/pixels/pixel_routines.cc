#include "pixels/pixel_routines.h"

#include "pixels/pixel_routines_avx2.h"

namespace linux_capture {

const PixelRoutines* VectorRoutines() {
#if defined(__x86_64__) && !defined(LINUX_CAPTURE_STOCK_PIXELS)
  static constexpr PixelRoutines kAvx2 = {
      .convertRowPair = ConvertRowPairByAvx2,
      .weighRows = WeighRowsByAvx2,
      .weighColumns = WeighColumnsByAvx2};
  static const bool kHasAvx2 =
      static_cast<bool>(__builtin_cpu_supports("avx2"));
  return kHasAvx2 ? &kAvx2 : nullptr;
#else
  return nullptr;
#endif
}

}  // namespace linux_capture
