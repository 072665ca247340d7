#ifndef LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_PIPELINE_TEXT_H_
#define LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_PIPELINE_TEXT_H_

#include <string>

#include "config/capture_config.h"

namespace linux_capture {

// The launch text of the software path: the source as I420, one size- and
// rate-limited appsink "videoSink<branchIndex>" per branch. Throws
// CodedError when the configuration names no usable source or branch.
std::string BuildOpenH264VideoPipeline(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_PIPELINE_TEXT_H_
