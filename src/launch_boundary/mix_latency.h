#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_

#include <gst/gst.h>

namespace linux_capture {

// How late sound may come. On two busy processors, beside four captures, half
// of the holes in the mix were gone with 50 ms, and hardly another one with 100
// or 150; most of the rest come in all captures at once.
inline constexpr GstClockTime kLateSound = 60 * GST_MSECOND;

// Left alone, the mixer waits for a source no longer than the source's own
// period: what comes later, because the machine was busy, is left out and there
// is silence in its place. All sound comes that much later for it, with the
// times that it had. Before PLAYING.
void WaitForLateSound(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_MIX_LATENCY_H_
