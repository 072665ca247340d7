#ifndef LINUX_CAPTURE_DELIVERY_BUFFER_TIMING_H_
#define LINUX_CAPTURE_DELIVERY_BUFFER_TIMING_H_

#include <gst/gst.h>

#include <cstdint>
#include <string>

namespace linux_capture {

// A buffer's timing in microseconds; ptsUs and dtsUs are 0 when the buffer has
// none, timestampUs is on the session clock.
struct BufferTiming {
  std::uint64_t ptsUs = 0;
  std::uint64_t dtsUs = 0;
  std::uint64_t timestampUs = 0;
  std::uint64_t durationUs = 0;
};

// `pipeline` (may be null) gives the base time that places the buffer on the
// session clock. Any thread.
BufferTiming ReadBufferTiming(GstBuffer* buffer, GstElement* pipeline,
                              std::uint64_t fallbackDurationUs);

// One frame's duration in whole microseconds, 0 for a rate that is not
// positive.
std::uint64_t FrameDurationUs(std::int32_t fps);

// The sample's caps as text; empty when it has none. Good until this thread
// asks again.
const std::string& SampleCapsString(GstSample* sample);

// Makes the sample's caps the last video caps of the report, if it has any.
void RememberVideoCaps(GstSample* sample);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_BUFFER_TIMING_H_
