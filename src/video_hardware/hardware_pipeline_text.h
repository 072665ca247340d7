#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_PIPELINE_TEXT_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_PIPELINE_TEXT_H_

#include <string>

#include "config/capture_config.h"
#include "video_hardware/encoder_profiles.h"

namespace linux_capture {

// The encoder properties of one branch, each preceded by a blank. Throws
// CodedError on a profile that does not name every property.
std::string BuildHardwareEncoderPropertySegment(
    const VideoBranchConfig& branch, const CaptureConfig& config,
    const GStreamerHardwareEncoderProfile& profile);

// The launch text of the hardware path: the portal's frames stay in GPU memory
// up to one encoder "videoEncoder<branchIndex>" and one appsink
// "videoSink<branchIndex>" per branch. Throws CodedError when source,
// branches or profile do not fit.
std::string BuildHardwareVideoPipeline(
    const CaptureConfig& config,
    const GStreamerHardwareEncoderProfile& profile);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_HARDWARE_PIPELINE_TEXT_H_
