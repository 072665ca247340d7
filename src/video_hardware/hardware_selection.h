#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_SELECTION_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_SELECTION_H_

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// Chooses the hardware encoder of a new session among the last probe's reports
// and records the choice: the active profile, the encoder selection, one
// statistics record per branch, and every branch waiting for its first
// keyframe. Throws CodedError when nothing can be chosen. No pipeline is
// running.
void SelectHardwareProvider(const CaptureConfig& config) REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_SELECTION_H_
