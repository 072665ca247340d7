#ifndef LINUX_CAPTURE_PIXELS_AREA_SPANS_H_
#define LINUX_CAPTURE_PIXELS_AREA_SPANS_H_

#include <array>
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

// Eight target samples of a row, as the vector instructions take them: two
// halves of four, each of which reads sixteen samples at a time.
struct ColumnGroup {
  std::array<int, 2> first{};
  std::array<std::uint8_t, 32> shuffle{};
};

// The two weights of every sample of a group for one pair of source samples.
using PairWeights = std::array<std::int16_t, 16>;

struct ColumnGroups {
  int pairs = 0;
  std::vector<ColumnGroup> groups;
  std::vector<PairWeights> weights;  // `pairs` of them for each group
};

// As many whole groups as there are; none where four samples of the target
// cover more than sixteen of the source.
ColumnGroups GroupColumns(const AreaSpans& columns);

// What a row has to have behind its last sample to be read by groups.
std::size_t ColumnPadding(const ColumnGroups& groups);

// `rows` are those of the span's weights, `stride` apart. Writes the samples
// from `begin` to `width`.
void WeighRowsPortably(const std::uint8_t* rows, std::ptrdiff_t stride,
                       std::span<const std::int16_t> weights, int begin,
                       int width, std::uint8_t* out);

void WeighColumnsPortably(const std::uint8_t* row, const AreaSpans& columns,
                          int begin, std::uint8_t* out);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_AREA_SPANS_H_
