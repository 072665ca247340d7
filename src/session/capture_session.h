#ifndef LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_
#define LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// Ends any earlier capture and starts one of `config`, up to the "ready"
// event. Throws CodedError, possibly with a capture half built: the
// caller then runs StopCaptureInternal. JavaScript thread.
void StartCapture(const CaptureConfig& config)
    EXCLUDES(g_controlMutex, g_mutex);

// Tears a session down to idle; does nothing when none exists. Emits no event.
// JavaScript thread.
void StopCaptureInternal() EXCLUDES(g_controlMutex, g_mutex);

// Keeps the streaming threads from outliving the process: the end of the
// process stops a running capture first. Idempotent.
void StopCaptureAtProcessExit();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_CAPTURE_SESSION_H_
