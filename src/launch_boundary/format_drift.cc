#include "launch_boundary/format_drift.h"

namespace linux_capture {
namespace {

// The order of the colours counts where both sides have a name for it.
bool AreAlike(const PipeWireVideoFormat& one,
              const PipeWireVideoFormat& other) {
  return one.width == other.width && one.height == other.height &&
         (one.pixels.empty() || other.pixels.empty() ||
          one.pixels == other.pixels);
}

}  // namespace

bool FormatDrift::Look(const std::optional<PipeWireVideoFormat>& read,
                       const std::optional<PipeWireVideoFormat>& given,
                       Time now) {
  lookedAt_ = now;
  if (!read || !given || AreAlike(*read, *given)) {
    areApart_ = false;
    return false;
  }
  if (!areApart_) apartSince_ = now;
  if (!areApart_ || last_ != given) changedAt_ = now;
  areApart_ = true;
  last_ = given;
  return now - changedAt_ >= kQuiet || now - apartSince_ >= kLongest;
}

}  // namespace linux_capture
