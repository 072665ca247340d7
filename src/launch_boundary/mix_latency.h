#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_

#include <gst/gst.h>

namespace linux_capture {

// How late sound may come where all other sound waits for it.
inline constexpr GstClockTime kLateSound = 60 * GST_MSECOND;

// How late it may come where nothing waits, or where sound has come as late
// before. With a load of 15 to 50 on two processors hardly any is later.
inline constexpr GstClockTime kLatestSound = 400 * GST_MSECOND;

// For how long the times of a source have to say that time was lost in it
// before the mix believes them. The mixer's own second would leave the sound of
// a player that was held up ahead of its picture for as long, and a busy
// machine holds up players more often than that.
inline constexpr GstClockTime kLostTime = 100 * GST_MSECOND;

// Left alone, the mixer waits for a source no longer than the source's own
// period. What comes later, because the machine was busy, it puts where it
// came, finds a second later that what followed at once has come too early, and
// leaves as much out.
//
// So it waits longer. Sound that has come goes on at once, so a mix of one
// source can wait long; in a mix of several a source that pauses holds up the
// others for as long, so the wait there is short, and becomes longer when sound
// has come too late for it. And sound gets times that follow each other, as
// long as those of its source agree with them but for what a busy machine adds.
// Before PLAYING.
void WaitForLateSound(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_
