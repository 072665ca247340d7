// The conversion of rows in vector instructions. Included once for each kind of
// processor, hence the guard that is switched to and fro.
#if defined(LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_INL_H_) == \
    defined(HWY_TARGET_TOGGLE)
#ifdef LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_INL_H_
#undef LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_INL_H_
#else
#define LINUX_CAPTURE_PIXELS_CONVERSION_ROWS_INL_H_
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "pixels/conversion_rows.h"
#include "pixels/vector_operations-inl.h"

HWY_BEFORE_NAMESPACE();
namespace linux_capture::HWY_NAMESPACE {
namespace {

constexpr int kVectorsPerStep = 4;
constexpr int kPixelsPerStep = kSumsPerVector * kVectorsPerStep;

// The weights of bytes 0 and 2 and of bytes 1 and 3 of every pixel, in the form
// in which the multiplication takes them.
struct VectorWeights {
  WordVector even;
  WordVector odd;
};

// Pixels as 16-bit lanes: bytes 0 and 2, bytes 1 and 3.
struct SplitPixels {
  WordVector even;
  WordVector odd;
};

HWY_INLINE VectorWeights Spread(const ByteWeights& weights) {
  std::int16_t each[4];
  std::memcpy(each, &weights, sizeof(each));
  return {PairOfWeights(each[0], each[2]), PairOfWeights(each[1], each[3])};
}

HWY_INLINE SplitPixels LoadPixels(const std::uint8_t* pixels) {
  const hn::RebindToUnsigned<Words> words;
  const auto loaded = hn::BitCast(words, hn::LoadU(Bytes(), pixels));
  return {hn::BitCast(Words(), hn::And(loaded, hn::Set(words, 0xff))),
          hn::BitCast(Words(), hn::ShiftRight<8>(loaded))};
}

// What is worked on at once.
struct Step {
  SplitPixels vectors[kVectorsPerStep];
};

HWY_INLINE Step LoadStep(const std::uint8_t* pixels) {
  return {{LoadPixels(pixels), LoadPixels(pixels + kBytesPerVector),
           LoadPixels(pixels + 2 * kBytesPerVector),
           LoadPixels(pixels + 3 * kBytesPerVector)}};
}

HWY_INLINE SplitPixels Sum(const SplitPixels& a, const SplitPixels& b) {
  return {hn::Add(a.even, b.even), hn::Add(a.odd, b.odd)};
}

// The sums of neighbours; half as many, from two vectors.
HWY_INLINE SplitPixels SumOfNeighbours(const SplitPixels& a,
                                       const SplitPixels& b) {
  return {hn::Add(EvenLanes(a.even, b.even), OddLanes(a.even, b.even)),
          hn::Add(EvenLanes(a.odd, b.odd), OddLanes(a.odd, b.odd))};
}

template <int kBits>
HWY_INLINE SumVector Weigh(const SplitPixels& pixels,
                           const VectorWeights& weights, int offset) {
  PairSums sums = NoSums();
  AddProducts(sums, pixels.even, weights.even);
  AddProducts(sums, pixels.odd, weights.odd);
  return hn::ShiftRight<kBits>(hn::Add(Total(sums), hn::Set(Sums(), offset)));
}

HWY_INLINE SumVector Luma(const SplitPixels& pixels,
                          const VectorWeights& weights) {
  return Weigh<kWeightBits>(pixels, weights, 1 << (kWeightBits - 1));
}

HWY_INLINE SumVector Chroma(const SplitPixels& sums,
                            const VectorWeights& weights) {
  return Weigh<kChromaBits>(sums, weights,
                            (128 << kChromaBits) + (1 << (kChromaBits - 1)));
}

HWY_INLINE void StoreLuma(const Step& step, const VectorWeights& weights,
                          std::uint8_t* out) {
  const ByteVector packed = PackWords(
      PackSums(Luma(step.vectors[0], weights), Luma(step.vectors[1], weights)),
      PackSums(Luma(step.vectors[2], weights), Luma(step.vectors[3], weights)));
#if HWY_TARGET == HWY_AVX2
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  hn::StoreU(ByteVector{_mm256_permutevar8x32_epi32(packed.raw, order)},
             Bytes(), out);
#else
  hn::StoreU(packed, Bytes(), out);
#endif
}

// The sums of four pixels each, half as many as there are in a row of a step.
struct Squares {
  SplitPixels vectors[kVectorsPerStep / 2];
};

HWY_INLINE Squares SumOfSquares(const Step& top, const Step& bottom) {
  return {{SumOfNeighbours(Sum(top.vectors[0], bottom.vectors[0]),
                           Sum(top.vectors[1], bottom.vectors[1])),
           SumOfNeighbours(Sum(top.vectors[2], bottom.vectors[2]),
                           Sum(top.vectors[3], bottom.vectors[3]))}};
}

HWY_INLINE void StoreChroma(const Squares& squares,
                            const VectorWeights& weights, std::uint8_t* out) {
  const WordVector words = PackSums(Chroma(squares.vectors[0], weights),
                                    Chroma(squares.vectors[1], weights));
  const hn::Half<Bytes> half;
#if HWY_TARGET == HWY_AVX2
  // Both halves of the vector have every other two samples.
  const hn::Half<hn::RebindToUnsigned<Words>> words16;
  const ByteVector bytes = PackWords(words, words);
  const auto first = hn::BitCast(words16, hn::LowerHalf(half, bytes));
  const auto second = hn::BitCast(words16, hn::UpperHalf(half, bytes));
  hn::StoreU(hn::BitCast(half, hn::InterleaveLower(words16, first, second)),
             half, out);
#else
  hn::StoreU(hn::DemoteTo(half, words), half, out);
#endif
}

int ConvertRowPair(const RowPair& rows, int width,
                   const ConversionWeights& weights) {
  const VectorWeights y = Spread(weights.y);
  const VectorWeights u = Spread(weights.u);
  const VectorWeights v = Spread(weights.v);
  int x = 0;
  for (; x + kPixelsPerStep <= width; x += kPixelsPerStep) {
    const Step top = LoadStep(rows.top + std::ptrdiff_t{x} * 4);
    const Step bottom = LoadStep(rows.bottom + std::ptrdiff_t{x} * 4);
    const Squares squares = SumOfSquares(top, bottom);
    StoreLuma(top, y, rows.topY + x);
    StoreLuma(bottom, y, rows.bottomY + x);
    StoreChroma(squares, u, rows.u + x / 2);
    StoreChroma(squares, v, rows.v + x / 2);
  }
  return x;
}

}  // namespace
}  // namespace linux_capture::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
