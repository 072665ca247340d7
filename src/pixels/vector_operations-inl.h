// What the vector routines need besides the library's own operations. Included
// once for each kind of processor, hence the guard that is switched to and fro.
#if defined(LINUX_CAPTURE_PIXELS_VECTOR_OPERATIONS_INL_H_) == \
    defined(HWY_TARGET_TOGGLE)
#ifdef LINUX_CAPTURE_PIXELS_VECTOR_OPERATIONS_INL_H_
#undef LINUX_CAPTURE_PIXELS_VECTOR_OPERATIONS_INL_H_
#else
#define LINUX_CAPTURE_PIXELS_VECTOR_OPERATIONS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstdint>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace linux_capture::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::ScalableTag<std::uint8_t>;
using Words = hn::ScalableTag<std::int16_t>;
using Sums = hn::ScalableTag<std::int32_t>;
using ByteVector = hn::Vec<Bytes>;
using WordVector = hn::Vec<Words>;
using SumVector = hn::Vec<Sums>;

constexpr int kBytesPerVector = static_cast<int>(hn::MaxLanes(Bytes()));
constexpr int kSumsPerVector = static_cast<int>(hn::MaxLanes(Sums()));

// The same two weights in all pairs of lanes.
HWY_INLINE WordVector PairOfWeights(std::int16_t first, std::int16_t second) {
  const std::int16_t both[2] = {first, second};
  std::int32_t pair = 0;
  std::memcpy(&pair, both, sizeof(pair));
  return hn::BitCast(Words(), hn::Set(Sums(), pair));
}

// The sums of what has been multiplied so far, in the two parts in which some
// processors keep them.
struct PairSums {
  SumVector low;
  SumVector high;
};

HWY_INLINE PairSums NoSums() { return {hn::Zero(Sums()), hn::Zero(Sums())}; }

HWY_INLINE void AddProducts(PairSums& sums, WordVector samples,
                            WordVector weights) {
  sums.low = hn::ReorderWidenMulAccumulate(Sums(), samples, weights, sums.low,
                                           sums.high);
}

// One sum for each pair of lanes.
HWY_INLINE SumVector Total(const PairSums& sums) {
  return hn::RearrangeToOddPlusEven(sums.low, sums.high);
}

// Those of vectors of 32 bytes work on each half by itself, so that what they
// return is out of order: `b` begins in the middle of the first half.

HWY_INLINE WordVector PackSums(SumVector a, SumVector b) {
  return hn::ReorderDemote2To(Words(), a, b);
}

HWY_INLINE ByteVector PackWords(WordVector a, WordVector b) {
#if HWY_TARGET == HWY_AVX2
  return ByteVector{_mm256_packus_epi16(a.raw, b.raw)};
#elif HWY_ARCH_X86
  return ByteVector{_mm_packus_epi16(a.raw, b.raw)};
#else
  const hn::Half<Bytes> half;
  return hn::Combine(Bytes(), hn::DemoteTo(half, b), hn::DemoteTo(half, a));
#endif
}

// Every other lane of 32 bits.
HWY_INLINE WordVector EvenLanes(WordVector a, WordVector b) {
#if HWY_TARGET == HWY_AVX2
  return WordVector{_mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a.raw), _mm256_castsi256_ps(b.raw),
                        _MM_SHUFFLE(2, 0, 2, 0)))};
#else
  return hn::BitCast(Words(), hn::ConcatEven(Sums(), hn::BitCast(Sums(), b),
                                             hn::BitCast(Sums(), a)));
#endif
}

HWY_INLINE WordVector OddLanes(WordVector a, WordVector b) {
#if HWY_TARGET == HWY_AVX2
  return WordVector{_mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a.raw), _mm256_castsi256_ps(b.raw),
                        _MM_SHUFFLE(3, 1, 3, 1)))};
#else
  return hn::BitCast(Words(), hn::ConcatOdd(Sums(), hn::BitCast(Sums(), b),
                                            hn::BitCast(Sums(), a)));
#endif
}

}  // namespace
}  // namespace linux_capture::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
