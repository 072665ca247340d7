#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_KEEPALIVE_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_KEEPALIVE_H_

#include <gst/gst.h>

namespace linux_capture {

// A compositor sends pictures only when something changes.

// While nothing does, the source repeats its last picture at this distance,
// from PipeWire 0.3.65 on, so that packets keep flowing and a keyframe that is
// asked for comes. It is also how long the last picture before a pause may wait
// in a branch of a lower rate, which could not know that nothing would follow.
// Repeating cost 0.02 processor seconds a second for three small branches with
// 200 ms, 0.04 with 100 and 0.1 with 50 (as much as moving pictures).
constexpr GstClockTime kStillPictureDistance = 100 * GST_MSECOND;

// Below that distance, or every repetition would come with copies that fill
// the time since the last one; and above the period of any source that moves.
// A branch whose own period is about as long takes a little more than that.
constexpr GstClockTime kLongestFilledGap = 90 * GST_MSECOND;

// Makes the PipeWire sources of a launched pipeline repeat. Before PLAYING.
void RepeatStillPictures(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_KEEPALIVE_H_
