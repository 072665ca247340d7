// The scaling of rows and columns in vector instructions. Included once for
// each kind of processor, hence the guard that is switched to and fro.
#if defined(LINUX_CAPTURE_PIXELS_AREA_SPANS_INL_H_) == \
    defined(HWY_TARGET_TOGGLE)
#ifdef LINUX_CAPTURE_PIXELS_AREA_SPANS_INL_H_
#undef LINUX_CAPTURE_PIXELS_AREA_SPANS_INL_H_
#else
#define LINUX_CAPTURE_PIXELS_AREA_SPANS_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "pixels/area_spans.h"
#include "pixels/pixel_routines.h"
#include "pixels/vector_operations-inl.h"

HWY_BEFORE_NAMESPACE();
namespace linux_capture::HWY_NAMESPACE {
namespace {

HWY_INLINE SumVector Rounded(const PairSums& sums, int rounding) {
  return hn::ShiftRight<kAreaWeightBits>(
      hn::Add(Total(sums), hn::Set(Sums(), rounding)));
}

// A vector's samples, four bytes each, in the order in which interleaving
// leaves them.
struct SampleSums {
  PairSums quarters[4];
};

HWY_INLINE void AddWeighed(SampleSums& sums, ByteVector first,
                           ByteVector second, WordVector weights) {
  const ByteVector zero = hn::Zero(Bytes());
  const ByteVector low = hn::InterleaveLower(Bytes(), first, second);
  const ByteVector high = hn::InterleaveUpper(Bytes(), first, second);
  const ByteVector pairs[4] = {hn::InterleaveLower(Bytes(), low, zero),
                               hn::InterleaveUpper(Bytes(), low, zero),
                               hn::InterleaveLower(Bytes(), high, zero),
                               hn::InterleaveUpper(Bytes(), high, zero)};
  for (int i = 0; i < 4; ++i) {
    AddProducts(sums.quarters[i], hn::BitCast(Words(), pairs[i]), weights);
  }
}

HWY_INLINE ByteVector SamplesOf(const SampleSums& sums) {
  return PackWords(PackSums(Rounded(sums.quarters[0], kRowRounding),
                            Rounded(sums.quarters[1], kRowRounding)),
                   PackSums(Rounded(sums.quarters[2], kRowRounding),
                            Rounded(sums.quarters[3], kRowRounding)));
}

int WeighRows(const WeighedRows& rows, int width, std::uint8_t* out) {
  int x = 0;
  for (; x + kBytesPerVector <= width; x += kBytesPerVector) {
    SampleSums sums = {{NoSums(), NoSums(), NoSums(), NoSums()}};
    const std::uint8_t* samples = rows.first + x;
    int row = 0;
    for (; row + 1 < rows.count; row += 2) {
      AddWeighed(sums, hn::LoadU(Bytes(), samples),
                 hn::LoadU(Bytes(), samples + rows.stride),
                 PairOfWeights(rows.weights[row], rows.weights[row + 1]));
      samples += 2 * rows.stride;
    }
    if (row < rows.count) {
      AddWeighed(sums, hn::LoadU(Bytes(), samples), hn::Zero(Bytes()),
                 PairOfWeights(rows.weights[row], 0));
    }
    hn::StoreU(SamplesOf(sums), Bytes(), out + x);
  }
  return x;
}

#if HWY_TARGET == HWY_AVX2

// Sixteen samples for each half of a group.
HWY_INLINE ByteVector LoadHalves(const std::uint8_t* first,
                                 const std::uint8_t* second) {
  const hn::Half<Bytes> half;
  return hn::Combine(Bytes(), hn::LoadU(half, second), hn::LoadU(half, first));
}

HWY_INLINE void WeighGroup(const std::uint8_t* row, const ColumnGroup& group,
                           const PairWeights* weights, int pairs,
                           std::uint8_t* out) {
  const ByteVector shuffle = hn::LoadU(Bytes(), group.shuffle);
  const std::uint8_t* first = row + group.first[0];
  const std::uint8_t* second = row + group.first[1];
  PairSums sums = NoSums();
  for (int pair = 0; pair < pairs; ++pair) {
    const ByteVector samples =
        hn::TableLookupBytesOr0(LoadHalves(first, second), shuffle);
    AddProducts(sums, hn::BitCast(Words(), samples),
                hn::LoadU(Words(), weights[pair].weights));
    first += 2;
    second += 2;
  }
  const hn::Rebind<std::int16_t, Sums> words;
  const hn::Rebind<std::uint8_t, Sums> bytes;
  hn::StoreU(
      hn::DemoteTo(bytes, hn::DemoteTo(words, Rounded(sums, kColumnRounding))),
      bytes, out);
}

#else

HWY_INLINE SumVector WeighHalf(const std::uint8_t* samples,
                               const std::uint8_t* shuffle,
                               const std::int16_t* weights, int pairs) {
  const ByteVector order = hn::LoadU(Bytes(), shuffle);
  PairSums sums = NoSums();
  for (int pair = 0; pair < pairs; ++pair) {
    const ByteVector ordered =
        hn::TableLookupBytesOr0(hn::LoadU(Bytes(), samples), order);
    AddProducts(sums, hn::BitCast(Words(), ordered),
                hn::LoadU(Words(), weights));
    samples += 2;
    weights += kWeightsPerPair;
  }
  return Rounded(sums, kColumnRounding);
}

HWY_INLINE void WeighGroup(const std::uint8_t* row, const ColumnGroup& group,
                           const PairWeights* weights, int pairs,
                           std::uint8_t* out) {
  const SumVector first =
      WeighHalf(row + group.first[0], group.shuffle, weights->weights, pairs);
  const SumVector second =
      WeighHalf(row + group.first[1], group.shuffle + kBytesPerVector,
                weights->weights + kWeightsPerPair / 2, pairs);
  const hn::Half<Bytes> half;
  hn::StoreU(hn::DemoteTo(half, PackSums(first, second)), half, out);
}

#endif

int WeighColumns(const std::uint8_t* row, const GroupedColumns& columns,
                 std::uint8_t* out) {
  // Copied, since what is written could otherwise change them.
  const int pairs = columns.pairs;
  const PairWeights* weights = columns.weights;
  const ColumnGroup* const end = columns.groups + columns.count;
  std::uint8_t* target = out;
  for (const ColumnGroup* group = columns.groups; group != end; ++group) {
    WeighGroup(row, *group, weights, pairs, target);
    weights += pairs;
    target += kSamplesPerGroup;
  }
  return static_cast<int>(target - out);
}

}  // namespace
}  // namespace linux_capture::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
