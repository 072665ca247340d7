#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_TIMESTAMPS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_TIMESTAMPS_H_

#include <gst/gst.h>

namespace linux_capture {

// The time that a live source's buffer is taken to have: its own `stamp`,
// unless that is missing, more than a second before `now` or a tenth after it,
// or not later than `previous` (GST_CLOCK_TIME_NONE at first). All are running
// times.
GstClockTime SaneTimestamp(GstClockTime stamp, GstClockTime now,
                           GstClockTime previous);

// Makes every pipewiresrc of the pipeline keep to sane times. A source whose
// times jump would otherwise make the rate adapters fill the hour between two
// pictures with copies and never get to a stop. Before PLAYING.
void KeepTimestampsSane(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_TIMESTAMPS_H_
