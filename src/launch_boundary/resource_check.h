#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_

#include "config/capture_config.h"

namespace linux_capture {

// Tries out, before anything is launched, whether the process may still start
// the threads and open the descriptors that a capture takes. GStreamer cannot
// be asked: without descriptors it names a property that does not exist, and
// once it could not start a thread no later pipeline of the process gets all of
// its threads. Throws CodedError with the system's reason.
void RequireThreadsAndDescriptors(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_RESOURCE_CHECK_H_
