#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_EMPTY_MIX_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_EMPTY_MIX_H_

#include <gst/gst.h>

namespace linux_capture {

// A mixer that nothing feeds delivers nothing, and the host could not tell a
// capture whose applications are all silent from one that has failed; a file
// would have no sound before the first of them plays. So a mix without any
// source gets silence to deliver. Throws CodedError. Before PLAYING.
void FeedEmptyMix(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_EMPTY_MIX_H_
