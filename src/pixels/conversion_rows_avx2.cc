#include "pixels/pixel_routines_avx2.h"

#ifdef __x86_64__

#include <immintrin.h>

#include <cstring>

// Compiled for these instructions function by function, since the module has
// to load on processors that lack them.
#define LINUX_CAPTURE_AVX2 __attribute__((target("avx2"), always_inline)) inline

namespace linux_capture {
namespace {

constexpr int kPixelsPerVector = 8;
constexpr int kVectorsPerStep = 4;
constexpr int kPixelsPerStep = kPixelsPerVector * kVectorsPerStep;

// The weights of bytes 0 and 2 and of bytes 1 and 3 of every pixel, in the form
// in which the multiplication takes them.
struct VectorWeights {
  __m256i even;
  __m256i odd;
};

// Eight pixels as 16-bit lanes: bytes 0 and 2, bytes 1 and 3.
struct SplitPixels {
  __m256i even;
  __m256i odd;
};

LINUX_CAPTURE_AVX2 __m256i PairOfWeights(std::int16_t low, std::int16_t high) {
  std::int32_t pair = 0;
  const std::int16_t both[2] = {low, high};
  std::memcpy(&pair, both, sizeof(pair));
  return _mm256_set1_epi32(pair);
}

LINUX_CAPTURE_AVX2 VectorWeights Spread(const ByteWeights& weights) {
  return {PairOfWeights(weights[0], weights[2]),
          PairOfWeights(weights[1], weights[3])};
}

LINUX_CAPTURE_AVX2 SplitPixels LoadPixels(const std::uint8_t* pixels) {
  const __m256i loaded =
      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
  return {_mm256_and_si256(loaded, _mm256_set1_epi16(0xff)),
          _mm256_srli_epi16(loaded, 8)};
}

LINUX_CAPTURE_AVX2 SplitPixels Sum(const SplitPixels& a, const SplitPixels& b) {
  return {_mm256_add_epi16(a.even, b.even), _mm256_add_epi16(a.odd, b.odd)};
}

LINUX_CAPTURE_AVX2 __m256i Weigh(const SplitPixels& pixels,
                                 const VectorWeights& weights) {
  return _mm256_add_epi32(_mm256_madd_epi16(pixels.even, weights.even),
                          _mm256_madd_epi16(pixels.odd, weights.odd));
}

LINUX_CAPTURE_AVX2 __m256i Luma(const SplitPixels& pixels,
                                const VectorWeights& weights) {
  const __m256i half = _mm256_set1_epi32(1 << (kWeightBits - 1));
  return _mm256_srai_epi32(_mm256_add_epi32(Weigh(pixels, weights), half),
                           kWeightBits);
}

LINUX_CAPTURE_AVX2 void StoreLuma(const SplitPixels* pixels,
                                  const VectorWeights& weights,
                                  std::uint8_t* out) {
  const __m256i first =
      _mm256_packs_epi32(Luma(pixels[0], weights), Luma(pixels[1], weights));
  const __m256i second =
      _mm256_packs_epi32(Luma(pixels[2], weights), Luma(pixels[3], weights));
  // Packing works on the two halves of a vector by themselves.
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  _mm256_storeu_si256(
      reinterpret_cast<__m256i*>(out),
      _mm256_permutevar8x32_epi32(_mm256_packus_epi16(first, second), order));
}

// Eight samples from the sums of two rows of sixteen pixels.
LINUX_CAPTURE_AVX2 __m256i PairUp(const SplitPixels& left,
                                  const SplitPixels& right,
                                  const VectorWeights& weights) {
  const __m256i offset =
      _mm256_set1_epi32((128 << kChromaBits) + (1 << (kChromaBits - 1)));
  const __m256i pairs =
      _mm256_hadd_epi32(Weigh(left, weights), Weigh(right, weights));
  return _mm256_srai_epi32(_mm256_add_epi32(pairs, offset), kChromaBits);
}

// From the sums of two rows to sixteen samples.
LINUX_CAPTURE_AVX2 void StoreChroma(const SplitPixels* columns,
                                    const VectorWeights& weights,
                                    std::uint8_t* out) {
  const __m256i words =
      _mm256_packs_epi32(PairUp(columns[0], columns[1], weights),
                         PairUp(columns[2], columns[3], weights));
  const __m256i bytes = _mm256_packus_epi16(words, words);
  const __m128i samples = _mm_unpacklo_epi16(
      _mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), samples);
}

}  // namespace

__attribute__((target("avx2"))) int ConvertRowPairByAvx2(
    const RowPair& rows, int width, const ConversionWeights& weights) {
  const VectorWeights y = Spread(weights.y);
  const VectorWeights u = Spread(weights.u);
  const VectorWeights v = Spread(weights.v);
  int x = 0;
  for (; x + kPixelsPerStep <= width; x += kPixelsPerStep) {
    SplitPixels top[kVectorsPerStep];
    SplitPixels bottom[kVectorsPerStep];
    SplitPixels columns[kVectorsPerStep];
    for (int i = 0; i < kVectorsPerStep; ++i) {
      const std::ptrdiff_t offset =
          (std::ptrdiff_t{x} + std::ptrdiff_t{i} * kPixelsPerVector) * 4;
      top[i] = LoadPixels(rows.top + offset);
      bottom[i] = LoadPixels(rows.bottom + offset);
      columns[i] = Sum(top[i], bottom[i]);
    }
    StoreLuma(top, y, rows.topY + x);
    StoreLuma(bottom, y, rows.bottomY + x);
    StoreChroma(columns, u, rows.u + x / 2);
    StoreChroma(columns, v, rows.v + x / 2);
  }
  return x;
}

}  // namespace linux_capture

#undef LINUX_CAPTURE_AVX2

#endif  // __x86_64__
