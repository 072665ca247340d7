#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// Tries out, before anything is launched, whether the process may still start
// the threads that a capture takes: once GStreamer could not start a thread, no
// later pipeline of the process gets all of its threads. Throws CodedError with
// the system's reason.
void RequireThreads(const CaptureConfig& config) REQUIRES(g_mutex);

// The threads of that capture, which has just ended, can be used again.
void NoteEndedCapture(const CaptureConfig& config) REQUIRES(g_mutex);

// To be called when a start has failed. How many descriptors it would have
// taken cannot be known before, and GStreamer names something else, such as a
// property that does not exist. Throws CodedError with the system's reason when
// the process has next to none left.
void ThrowIfShortOfDescriptors();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_
