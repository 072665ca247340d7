#ifndef LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_
#define LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_

#include <chrono>

#include "base/capture_mutex.h"
#include "config/capture_config.h"
#include "launch_boundary/pipeline_control.h"

namespace linux_capture {

// What a stop may take: usually some milliseconds, and pictures that are being
// encoded are waited for. Then the pipelines are given up.
inline constexpr std::chrono::milliseconds kStopPatience{2'000};
// At the end of a thread or the process less is at stake.
inline constexpr std::chrono::milliseconds kExitPatience{1'000};

// Ends any earlier capture and starts one of `config`, up to the "ready"
// event. `patience` began with the call, which may have waited for the control.
// After an exception there is no capture. JavaScript thread.
void StartCapture(const CaptureConfig& config, StartPatience& patience)
    REQUIRES(g_controlMutex) EXCLUDES(g_mutex);

// The one teardown, to idle; does nothing when there is no session. What has
// not ended after `patience` is given up. Emits no event. JavaScript thread.
void StopCaptureInternal(std::chrono::milliseconds patience)
    REQUIRES(g_controlMutex) EXCLUDES(g_mutex);

// Keeps the streaming threads from outliving the process: the end of the
// process stops a running capture first. Idempotent.
void StopCaptureAtProcessExit();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_
