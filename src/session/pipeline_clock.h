#ifndef LINUX_CAPTURE_SESSION_PIPELINE_CLOCK_H_
#define LINUX_CAPTURE_SESSION_PIPELINE_CLOCK_H_

#include <gst/gst.h>

#include <memory>

#include "base/gst_handles.h"

namespace linux_capture {

using GstClockPtr = std::unique_ptr<GstClock, GstObjectDeleter>;

// The machine's monotonic clock, but for one thing: whoever waits for a time
// more than a second ahead is told at once that it has come.
GstClockPtr NewPipelineClock();

// Puts a launched pipeline with a PipeWire source on such a clock. Before
// PLAYING.
void UseMonotonicClock(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_PIPELINE_CLOCK_H_
