#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_ENCODED_SAMPLE_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_ENCODED_SAMPLE_H_

#include <gst/app/gstappsink.h>

#include <array>
#include <cstdint>

#include "state/capture_state.h"

namespace linux_capture {

// Temporal layers of four successive pictures of a stream with three layers.
inline constexpr std::array<std::uint32_t, 4> kL1T3TemporalPattern = {0, 2, 1,
                                                                      2};

// "new-sample" of a hardware branch appsink: hands one access unit to the
// bridge. `context` may be null, which means branch 0 of the active
// configuration. Runs on the branch's streaming thread; never waits for
// JavaScript.
GstFlowReturn OnEncodedVideoSample(GstAppSink* sink, VideoSinkContext* context);

// The temporal layer reported for the branch's next picture. Hardware encoders
// give a flat stream; the layer is made up from the pattern, which starts
// again at every keyframe. Untracked branches are always at layer 0.
std::uint32_t ResolveHardwareSyntheticTemporalIndex(std::int32_t branchIndex,
                                                    bool keyframe);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_ENCODED_SAMPLE_H_
