#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_HELD_ENDING_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_HELD_ENDING_H_

#include <gst/gst.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/gst_handles.h"
#include "base/mutex.h"

namespace linux_capture {

// PipeWire 1.2 and 1.4 do not follow a producer that changes the format of its
// pictures: the source ends its stream with errors that tell nothing of the
// cause, and the end of the stream reads as the end of the source. So what the
// source says when its format has been taken away is held until more is known.
class HeldEnding {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Whether the message is kept and goes no further. Any thread.
  bool Take(GstMessage* message, Time now);

  // Since when something is held; none while nothing is.
  [[nodiscard]] std::optional<Time> heldSince() const;

  // Whether the source has refused another format. It may only have lost the
  // one that it had otherwise: with its links, for instance. What else becomes
  // of such a stream is a consequence.
  [[nodiscard]] bool isFormatRefused() const;

  // It was another format: what was kept is dropped, and what still follows.
  void Drop();

  // It was something else: all goes on to the bus of the pipeline.
  void Release(GstElement* pipeline);

 private:
  enum class Phase : std::uint8_t { kWaiting, kHolding, kDropping, kReleased };

  mutable Mutex mutex_;  // a leaf
  Phase phase_ GUARDED_BY(mutex_) = Phase::kWaiting;
  Time heldSince_ GUARDED_BY(mutex_);
  bool isFormatRefused_ GUARDED_BY(mutex_) = false;
  std::vector<GstMessagePtr> errors_ GUARDED_BY(mutex_);
  // Not the message, which would keep the pipeline that keeps this.
  bool hasStreamEnded_ GUARDED_BY(mutex_) = false;
};

// Holds such endings of the pipeline's sources from now on. After the watch has
// begun, before PLAYING.
void HoldFormatEndings(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_HELD_ENDING_H_
