#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_

namespace linux_capture {

// Asks every active video encoder, hardware or OpenH264, for an immediate IDR
// picture. Returns whether any hardware encoder, or every OpenH264 encoder,
// accepted; failures are recorded in the OpenH264 error counter and text,
// which serve both paths. JavaScript thread; takes the capture mutex.
bool ForceKeyframe();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_KEYFRAME_FORCING_H_
