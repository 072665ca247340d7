#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_ORDER_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_ORDER_H_

#include <gst/gst.h>

namespace linux_capture {

// The mixer's first buffer has the time zero, which reads as "no time": it
// would be replaced by the age of the machine, and every offset between sound
// and picture that starts from it would be off by that. And when it was due
// before there was any sound, the next one has the time zero again. (The
// mixer's own start-time is forgotten in that case.)
void OrderMix(GstElement* pipeline);

// A source stamps its sound with the time at which it begins, so the end of a
// mix is ahead of the clock, and another mix that is started at once begins
// before that. What the `ended` mix already had is left out of the one that
// takes its place, so that no time comes back. Both are in the NULL state, with
// their mixes ordered.
void ContinueMix(GstElement* ended, GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_ORDER_H_
