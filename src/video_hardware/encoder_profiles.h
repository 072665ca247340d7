#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_ENCODER_PROFILES_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_ENCODER_PROFILES_H_

#include <vector>

#include "state/encoder_profile.h"

namespace linux_capture {

// The five rows in the order in which they are probed and reported.
std::vector<GStreamerHardwareEncoderProfile> GStreamerHardwareEncoderProfiles();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_ENCODER_PROFILES_H_
