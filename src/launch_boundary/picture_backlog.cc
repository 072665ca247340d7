#include "launch_boundary/picture_backlog.h"

#include "base/stage_log.h"

namespace linux_capture {
namespace {

// As many as the queue holds may have waited for one long turn.
constexpr int kMostLateInARow = 4;

// An encoder that is a little too slow falls behind again and again.
constexpr GstClockTime kStaysBehind = 2 * GST_SECOND;

}  // namespace

bool PictureBacklog::LeavesOut(const GstBuffer* picture, GstClockTime period) {
  if (!queue_ || !GST_BUFFER_PTS_IS_VALID(picture) ||
      !GST_CLOCK_TIME_IS_VALID(period)) {
    return false;
  }
  guint waiting = 0;
  g_object_get(queue_.get(), "current-level-buffers", &waiting, nullptr);
  const GstClockTime now = gst_element_get_current_running_time(queue_.get());
  if (waiting == 0 || !GST_CLOCK_TIME_IS_VALID(now) ||
      now <= GST_BUFFER_PTS(picture) + period) {
    late_ = 0;
    return false;
  }
  ++late_;
  if (late_ < kMostLateInARow && now >= behindUntil_) return false;
  behindUntil_ = now + kStaysBehind;
  if (!isReported_) {
    isReported_ = true;
    LogCaptureStage("pipeline:encoder-behind=pictures-left-out");
  }
  return true;
}

}  // namespace linux_capture
