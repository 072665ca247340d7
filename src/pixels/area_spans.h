#ifndef LINUX_CAPTURE_PIXELS_AREA_SPANS_H_
#define LINUX_CAPTURE_PIXELS_AREA_SPANS_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace linux_capture {

constexpr int kAreaWeightBits = 14;
// What lies halfway between two steps goes down in the rows and up in the
// columns, so that the picture as a whole does not become brighter.
constexpr int kRowRounding = (1 << (kAreaWeightBits - 1)) - 1;
constexpr int kColumnRounding = 1 << (kAreaWeightBits - 1);

// The source samples that a target sample covers, and how much of it each one
// makes up, in 1/16384. The weights of a span add up to one, so that what is
// even stays as it is.
struct AreaSpan {
  int first = 0;
  std::span<const std::int16_t> weights;
};

// The spans of one dimension.
class AreaSpans {
 public:
  // Both positive, `to` not larger than `from`.
  AreaSpans(int from, int to);

  [[nodiscard]] int from() const { return from_; }
  [[nodiscard]] int to() const { return static_cast<int>(firsts_.size()); }
  [[nodiscard]] AreaSpan at(int index) const;

 private:
  int from_;
  std::vector<int> firsts_;
  std::vector<std::size_t> ends_;  // of each span in weights_
  std::vector<std::int16_t> weights_;
};

// As the vector instructions take them, which use nothing of the standard
// library: what of it is compiled for one kind of processor must not be what
// another one runs.

constexpr int kSamplesPerGroup = 8;
constexpr int kWeightsPerPair = 2 * kSamplesPerGroup;

// Eight target samples of a row: two halves of four, each of which reads
// sixteen samples at a time.
struct ColumnGroup {
  int first[2] = {};
  std::uint8_t shuffle[4 * kSamplesPerGroup] = {};
};

// The two weights of every sample of a group for one pair of source samples.
struct PairWeights {
  std::int16_t weights[kWeightsPerPair] = {};
};

// `pairs` weights for each of the groups.
struct GroupedColumns {
  const ColumnGroup* groups = nullptr;
  int count = 0;
  const PairWeights* weights = nullptr;
  int pairs = 0;
};

// Rows that make up one, `stride` apart.
struct WeighedRows {
  const std::uint8_t* first = nullptr;
  std::ptrdiff_t stride = 0;
  const std::int16_t* weights = nullptr;
  int count = 0;
};

struct ColumnGroups {
  [[nodiscard]] GroupedColumns view() const {
    return {groups.data(), static_cast<int>(groups.size()), weights.data(),
            pairs};
  }

  int pairs = 0;
  std::vector<ColumnGroup> groups;
  std::vector<PairWeights> weights;  // `pairs` of them for each group
};

// As many whole groups as there are; none where four samples of the target
// cover more than sixteen of the source.
ColumnGroups GroupColumns(const AreaSpans& columns);

// What a row has to have behind its last sample to be read by groups.
std::size_t ColumnPadding(const ColumnGroups& groups);

// Writes the samples from `begin` to `width`.
void WeighRowsPortably(const WeighedRows& rows, int begin, int width,
                       std::uint8_t* out);

void WeighColumnsPortably(const std::uint8_t* row, const AreaSpans& columns,
                          int begin, std::uint8_t* out);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_AREA_SPANS_H_
