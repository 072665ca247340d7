#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_DRIFT_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_DRIFT_H_

#include <chrono>
#include <optional>

#include "launch_boundary/pipewire_registry.h"

namespace linux_capture {

// Tells from looks at both sides of a stream that its reader does not follow a
// change of format. One that does follow needs a moment, and a window that is
// being resized changes again and again: a change counts when it has been the
// last one for a while, or when there was no agreement for too long.
class FormatDrift {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::milliseconds kQuiet{300};
  static constexpr std::chrono::milliseconds kLongest{600};

  // `read` is what the reader was told, `given` what the node says that it
  // gives. True when they have drifted apart.
  bool Look(const std::optional<PipeWireVideoFormat>& read,
            const std::optional<PipeWireVideoFormat>& given, Time now);

  // For how long they have been apart at the last look.
  [[nodiscard]] std::chrono::steady_clock::duration apartFor() const {
    return areApart_ ? lookedAt_ - apartSince_
                     : std::chrono::steady_clock::duration::zero();
  }

 private:
  std::optional<PipeWireVideoFormat> last_;
  Time apartSince_{};
  Time changedAt_{};
  Time lookedAt_{};
  bool areApart_ = false;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_DRIFT_H_
