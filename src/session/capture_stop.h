#ifndef LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_
#define LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_

namespace linux_capture {

// The one teardown, for a caller that holds g_controlMutex.
void StopCaptureUnderControl();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_CAPTURE_STOP_H_
