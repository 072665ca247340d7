#include "pixels/area_scaling.h"

#include "pixels/pixel_routines.h"

namespace linux_capture {

AreaScaler::AreaScaler(PlaneSize from, PlaneSize to,
                       const PixelRoutines& routines)
    : routines_(&routines),
      columns_(from.width, to.width),
      rows_(from.height, to.height),
      groups_(GroupColumns(columns_)),
      row_(static_cast<std::size_t>(from.width) + ColumnPadding(groups_)) {}

// Rows first, since that reads the source once and leaves less to do across.
void AreaScaler::Scale(const std::uint8_t* in, std::ptrdiff_t inStride,
                       std::uint8_t* out, std::ptrdiff_t outStride) {
  for (int i = 0; i < rows_.to(); ++i) {
    const AreaSpan span = rows_.at(i);
    const WeighedRows rows = {.first = in + span.first * inStride,
                              .stride = inStride,
                              .weights = span.weights.data(),
                              .count = static_cast<int>(span.weights.size())};
    int done = routines_->weighRows(rows, columns_.from(), row_.data());
    WeighRowsPortably(rows, done, columns_.from(), row_.data());
    std::uint8_t* target = out + i * outStride;
    done = routines_->weighColumns(row_.data(), groups_.view(), target);
    WeighColumnsPortably(row_.data(), columns_, done, target);
  }
}

}  // namespace linux_capture
