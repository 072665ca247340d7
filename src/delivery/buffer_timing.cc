#include "delivery/buffer_timing.h"

#include <cmath>
#include <utility>

#include "base/gst_handles.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

constexpr std::uint64_t kNsPerUs = 1000;

std::uint64_t ToUs(GstClockTime time) noexcept {
  return GST_CLOCK_TIME_IS_VALID(time) ? time / kNsPerUs : 0;
}

// Buffer running time to session clock: the pipeline's base time places it on
// the monotonic clock, whose value at setup is the session's origin.
std::uint64_t OnSessionClock(std::uint64_t timestampUs, GstElement* pipeline) {
  if (pipeline == nullptr) return timestampUs;
  const GstClockTime baseTime = gst_element_get_base_time(pipeline);
  const std::uint64_t originUs = g_sessionClockOriginUs.Get();
  if (!GST_CLOCK_TIME_IS_VALID(baseTime) || baseTime < kNsPerUs ||
      originUs == 0) {
    return timestampUs;
  }
  const std::uint64_t absoluteUs = baseTime / kNsPerUs + timestampUs;
  return absoluteUs >= originUs ? absoluteUs - originUs : timestampUs;
}

}  // namespace

BufferTiming ReadBufferTiming(GstBuffer* buffer, GstElement* pipeline,
                              std::uint64_t fallbackDurationUs) {
  BufferTiming timing;
  timing.ptsUs = ToUs(GST_BUFFER_PTS(buffer));
  timing.dtsUs = ToUs(GST_BUFFER_DTS(buffer));
  timing.timestampUs = timing.ptsUs != 0 ? timing.ptsUs
                       : timing.dtsUs != 0
                           ? timing.dtsUs
                           : static_cast<std::uint64_t>(g_get_monotonic_time());
  timing.timestampUs = OnSessionClock(timing.timestampUs, pipeline);
  timing.durationUs = ToUs(GST_BUFFER_DURATION(buffer));
  if (timing.durationUs == 0) timing.durationUs = fallbackDurationUs;
  return timing;
}

std::uint64_t FrameDurationUs(std::int32_t fps) {
  if (fps <= 0) return 0;
  return static_cast<std::uint64_t>(std::llround(1'000'000.0 / fps));
}

const std::string& SampleCapsString(GstSample* sample) {
  // Writing caps out costs more than all else that is done to a packet, and a
  // streaming thread sees the same ones time after time. The reference keeps
  // their address from being given to others.
  thread_local GstCapsPtr seen;
  thread_local std::string text;
  GstCaps* caps = gst_sample_get_caps(sample);
  if (caps != nullptr && caps == seen.get()) return text;
  seen.reset();
  text.clear();
  if (caps == nullptr || gst_caps_is_empty(caps)) return text;
  const GCharPtr written(gst_caps_to_string(caps));
  if (written) text = written.get();
  seen.reset(gst_caps_ref(caps));
  return text;
}

void RememberVideoCaps(GstSample* sample) {
  const std::string& caps = SampleCapsString(sample);
  if (caps.empty()) return;
  const MutexLock lock(g_capsMutex);
  *g_lastVideoCaps = caps;
}

}  // namespace linux_capture
