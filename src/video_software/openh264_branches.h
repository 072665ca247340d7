#ifndef LINUX_CAPTURE_VIDEO_SOFTWARE_OPENH264_BRANCHES_H_
#define LINUX_CAPTURE_VIDEO_SOFTWARE_OPENH264_BRANCHES_H_

#include <wels/codec_api.h>

#include <cstdint>

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// The encoder parameters of one branch, written over the library's defaults.
void ApplyBranchParameters(const VideoBranchConfig& branch,
                           std::int32_t temporalLayerCount,
                           SEncParamExt& parameters);

// Keyframe period in frames: two seconds, rounded up to a multiple of
// 2^temporalLayers.
std::uint32_t OpenH264IntraPeriod(std::int32_t fps,
                                  std::int32_t temporalLayers);

// Creates one encoder per branch of `config` and records the choice in the
// session's encoder selection. Throws CodedError; encoders created
// before the failing one stay until the next destroy.
void InitializeOpenH264Branches(const CaptureConfig& config) REQUIRES(g_mutex);
void InitializeOpenH264Branch(const VideoBranchConfig& branch,
                              std::int32_t temporalLayerCount)
    REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_SOFTWARE_OPENH264_BRANCHES_H_
