#include "pixels/area_spans.h"

#include <algorithm>

namespace linux_capture {
namespace {

constexpr int kSamplesPerHalf = 4;
constexpr int kSamplesPerRead = 16;
constexpr std::uint8_t kZeroByte = 0x80;  // as a shuffle understands it

std::uint8_t RoundedSample(int sum, int rounding) {
  return static_cast<std::uint8_t>((sum + rounding) >> kAreaWeightBits);
}

int PairsOf(const AreaSpans& columns) {
  std::size_t longest = 0;
  for (int i = 0; i < columns.to(); ++i) {
    longest = std::max(longest, columns.at(i).weights.size());
  }
  return static_cast<int>((longest + 1) / 2);
}

bool FitsIntoReads(const AreaSpans& columns) {
  for (int i = 0; i + kSamplesPerHalf <= columns.to(); i += kSamplesPerHalf) {
    const int reach = columns.at(i + kSamplesPerHalf - 1).first + 1;
    if (reach - columns.at(i).first >= kSamplesPerRead) return false;
  }
  return true;
}

ColumnGroup GroupAt(const AreaSpans& columns, int begin) {
  ColumnGroup group;
  for (std::size_t i = 0; i < kSamplesPerGroup; ++i) {
    const std::size_t half = i / kSamplesPerHalf;
    if (i % kSamplesPerHalf == 0) {
      group.first[half] = columns.at(begin + static_cast<int>(i)).first;
    }
    const int offset =
        columns.at(begin + static_cast<int>(i)).first - group.first[half];
    std::uint8_t* bytes = &group.shuffle[i * 4];
    bytes[0] = static_cast<std::uint8_t>(offset);
    bytes[2] = static_cast<std::uint8_t>(offset + 1);
    bytes[1] = bytes[3] = kZeroByte;
  }
  return group;
}

PairWeights WeightsAt(const AreaSpans& columns, int begin, int pair) {
  PairWeights result;
  for (std::size_t i = 0; i < kSamplesPerGroup; ++i) {
    const auto weights = columns.at(begin + static_cast<int>(i)).weights;
    for (std::size_t j = 0; j < 2; ++j) {
      const std::size_t at = static_cast<std::size_t>(pair) * 2 + j;
      if (at < weights.size()) result.weights[i * 2 + j] = weights[at];
    }
  }
  return result;
}

}  // namespace

AreaSpans::AreaSpans(int from, int to) : from_(from) {
  // Positions in parts of a source sample of which each has `to`, so that the
  // borders of the target's samples are whole numbers: `from` apart.
  for (std::int64_t i = 0; i < to; ++i) {
    const std::int64_t begin = i * from;
    const std::int64_t end = begin + from;
    const std::int64_t first = begin / to;
    const std::int64_t last = (end - 1) / to;
    firsts_.push_back(static_cast<int>(first));
    std::int64_t before = 0;
    for (std::int64_t at = first; at <= last; ++at) {
      // Rounded as a running sum, which ends at exactly one.
      const std::int64_t covered = std::min((at + 1) * to, end) - begin;
      const std::int64_t sum = ((covered << kAreaWeightBits) + from / 2) / from;
      weights_.push_back(static_cast<std::int16_t>(sum - before));
      before = sum;
    }
    ends_.push_back(weights_.size());
  }
}

AreaSpan AreaSpans::at(int index) const {
  const auto i = static_cast<std::size_t>(index);
  const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
  return {firsts_[i], std::span(weights_).subspan(begin, ends_[i] - begin)};
}

ColumnGroups GroupColumns(const AreaSpans& columns) {
  ColumnGroups result;
  result.pairs = PairsOf(columns);
  if (!FitsIntoReads(columns)) return result;
  for (int i = 0; i + kSamplesPerGroup <= columns.to(); i += kSamplesPerGroup) {
    result.groups.push_back(GroupAt(columns, i));
    for (int pair = 0; pair < result.pairs; ++pair) {
      result.weights.push_back(WeightsAt(columns, i, pair));
    }
  }
  return result;
}

std::size_t ColumnPadding(const ColumnGroups& groups) {
  return kSamplesPerRead + static_cast<std::size_t>(groups.pairs) * 2;
}

void WeighRowsPortably(const WeighedRows& rows, int begin, int width,
                       std::uint8_t* out) {
  for (int x = begin; x < width; ++x) {
    int sum = 0;
    const std::uint8_t* sample = rows.first + x;
    for (int row = 0; row < rows.count; ++row) {
      sum += rows.weights[row] * *sample;
      sample += rows.stride;
    }
    out[x] = RoundedSample(sum, kRowRounding);
  }
}

void WeighColumnsPortably(const std::uint8_t* row, const AreaSpans& columns,
                          int begin, std::uint8_t* out) {
  for (int i = begin; i < columns.to(); ++i) {
    const AreaSpan span = columns.at(i);
    const std::uint8_t* sample = row + span.first;
    int sum = 0;
    for (const std::int16_t weight : span.weights) sum += weight * *sample++;
    out[i] = RoundedSample(sum, kColumnRounding);
  }
}

}  // namespace linux_capture
