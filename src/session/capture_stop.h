#ifndef LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_
#define LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_

#include <chrono>

#include "base/capture_mutex.h"

namespace linux_capture {

// The one teardown. What has not ended after `patience` is given up.
void StopCaptureUnderControl(std::chrono::milliseconds patience)
    REQUIRES(g_controlMutex) EXCLUDES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_
