#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_BRANCH_SIZE_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_BRANCH_SIZE_CHECK_H_

#include "config/capture_config.h"

namespace linux_capture {

// OpenH264 takes a branch of fewer than 16 columns or lines and then fails with
// its first picture, which would end the capture after its start. Throws
// CodedError with the branch and its size.
void RequireEncodableBranches(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_BRANCH_SIZE_CHECK_H_
