#include "pixels/pixel_routines_avx2.h"

#ifdef __x86_64__

#include <immintrin.h>

#include <bit>

// Compiled for these instructions function by function, since the module has
// to load on processors that lack them.
#define LINUX_CAPTURE_AVX2 __attribute__((target("avx2"), always_inline)) inline

namespace linux_capture {
namespace {

constexpr int kSamplesPerVector = 32;

LINUX_CAPTURE_AVX2 __m256i RoundedSums(__m256i sums, int rounding) {
  return _mm256_srai_epi32(_mm256_add_epi32(sums, _mm256_set1_epi32(rounding)),
                           kAreaWeightBits);
}

LINUX_CAPTURE_AVX2 __m256i BothWeights(std::int16_t first,
                                       std::int16_t second) {
  return _mm256_set1_epi32(
      std::bit_cast<std::int32_t>(std::array{first, second}));
}

// Sums of 32 samples, four bytes each, in the order in which unpacking leaves
// them.
struct SampleSums {
  __m256i quarters[4];
};

LINUX_CAPTURE_AVX2 __m256i LoadSamples(const std::uint8_t* samples) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples));
}

LINUX_CAPTURE_AVX2 void AddWeighed(SampleSums& sums, __m256i first,
                                   __m256i second, __m256i weights) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i low = _mm256_unpacklo_epi8(first, second);
  const __m256i high = _mm256_unpackhi_epi8(first, second);
  const __m256i pairs[4] = {
      _mm256_unpacklo_epi8(low, zero), _mm256_unpackhi_epi8(low, zero),
      _mm256_unpacklo_epi8(high, zero), _mm256_unpackhi_epi8(high, zero)};
  for (int i = 0; i < 4; ++i) {
    sums.quarters[i] = _mm256_add_epi32(sums.quarters[i],
                                        _mm256_madd_epi16(pairs[i], weights));
  }
}

LINUX_CAPTURE_AVX2 __m256i SamplesOf(const SampleSums& sums) {
  return _mm256_packus_epi16(
      _mm256_packs_epi32(RoundedSums(sums.quarters[0], kRowRounding),
                         RoundedSums(sums.quarters[1], kRowRounding)),
      _mm256_packs_epi32(RoundedSums(sums.quarters[2], kRowRounding),
                         RoundedSums(sums.quarters[3], kRowRounding)));
}

// Sixteen samples for each half of a group.
LINUX_CAPTURE_AVX2 __m256i LoadHalves(const std::uint8_t* first,
                                      const std::uint8_t* second) {
  return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(second),
                             reinterpret_cast<const __m128i*>(first));
}

LINUX_CAPTURE_AVX2 void StoreGroup(__m256i sums, std::uint8_t* out) {
  const __m256i rounded = RoundedSums(sums, kColumnRounding);
  const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(rounded),
                                        _mm256_extracti128_si256(rounded, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out),
                   _mm_packus_epi16(words, words));
}

}  // namespace

__attribute__((target("avx2"))) int WeighRowsByAvx2(
    const std::uint8_t* rows, std::ptrdiff_t stride,
    std::span<const std::int16_t> weights, int width, std::uint8_t* out) {
  int x = 0;
  for (; x + kSamplesPerVector <= width; x += kSamplesPerVector) {
    const __m256i zero = _mm256_setzero_si256();
    SampleSums sums = {{zero, zero, zero, zero}};
    const std::uint8_t* samples = rows + x;
    std::size_t row = 0;
    for (; row + 1 < weights.size(); row += 2) {
      AddWeighed(sums, LoadSamples(samples), LoadSamples(samples + stride),
                 BothWeights(weights[row], weights[row + 1]));
      samples += 2 * stride;
    }
    if (row < weights.size()) {
      AddWeighed(sums, LoadSamples(samples), zero,
                 BothWeights(weights[row], 0));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), SamplesOf(sums));
  }
  return x;
}

__attribute__((target("avx2"))) int WeighColumnsByAvx2(
    const std::uint8_t* row, const ColumnGroups& columns, std::uint8_t* out) {
  const PairWeights* weights = columns.weights.data();
  std::uint8_t* target = out;
  for (const ColumnGroup& group : columns.groups) {
    const __m256i shuffle = LoadSamples(group.shuffle.data());
    const std::uint8_t* first = row + group.first[0];
    const std::uint8_t* second = row + group.first[1];
    __m256i sums = _mm256_setzero_si256();
    for (int pair = 0; pair < columns.pairs; ++pair) {
      const __m256i samples =
          _mm256_shuffle_epi8(LoadHalves(first, second), shuffle);
      const __m256i both =
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(weights->data()));
      sums = _mm256_add_epi32(sums, _mm256_madd_epi16(samples, both));
      first += 2;
      second += 2;
      ++weights;
    }
    StoreGroup(sums, target);
    target += 8;
  }
  return static_cast<int>(target - out);
}

}  // namespace linux_capture

#undef LINUX_CAPTURE_AVX2

#endif  // __x86_64__
