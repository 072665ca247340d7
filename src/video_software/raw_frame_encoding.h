#ifndef LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_FRAME_ENCODING_H_
#define LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_FRAME_ENCODING_H_

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <cstdint>

#include "delivery/buffer_timing.h"
#include "state/capture_state.h"
#include "state/openh264_encoders.h"

namespace linux_capture {

// "new-sample" of a raw branch appsink: encodes one I420 frame and hands the
// packet to the bridge. Runs on the branch's streaming thread; never
// waits for JavaScript.
GstFlowReturn OnVideoSample(GstAppSink* sink, VideoSinkContext* context);

// What EncodeFrameOfBranch returns for a frame that gave no packet.
inline constexpr std::int32_t kNoPacket = -1;

// The encoding half: `frame` is mapped for reading, `record` may be null.
// Returns the packet's temporal index. Its failures throw CodedError with the
// message that OnVideoSample reports.
std::int32_t EncodeFrameOfBranch(const GstVideoFrame& frame,
                                 const BufferTiming& timing,
                                 std::int32_t branchIndex,
                                 OpenH264BranchEncoder* record);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_SOFTWARE_RAW_FRAME_ENCODING_H_
