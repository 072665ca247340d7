#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CLOCK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CLOCK_H_

#include <gst/gst.h>

#include <cstdint>
#include <memory>

#include "base/gst_handles.h"

namespace linux_capture {

using GstClockPtr = std::unique_ptr<GstClock, GstObjectDeleter>;

// The machine's monotonic clock, but for one thing: whoever waits for a time
// more than a second ahead is told at once that it has come.
GstClockPtr NewImpatientClock();

// How long the elements of a pipeline may wait for its clock.
enum class ClockWaits : std::uint8_t {
  // As long as they like: a mixer paces itself by waiting, and would produce
  // without end once it was a second ahead.
  kAny,
  // At most a second, for a source that waits for the times of its producer.
  kBounded,
};

// Puts a launched pipeline with a PipeWire source, or with silence instead, on
// the monotonic clock.
// Before PLAYING.
void UseMonotonicClock(GstElement* pipeline, ClockWaits waits);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CLOCK_H_
