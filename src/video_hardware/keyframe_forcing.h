#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_

#include "base/capture_mutex.h"

namespace linux_capture {

// Asks every active video encoder, hardware or OpenH264, for an immediate IDR
// picture. Returns whether any hardware encoder, or every OpenH264 encoder,
// accepted; failures are recorded in the OpenH264 error counter and text,
// which serve both paths. JavaScript thread.
bool ForceKeyframe() EXCLUDES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_
