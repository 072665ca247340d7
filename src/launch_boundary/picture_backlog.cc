#include "launch_boundary/picture_backlog.h"

#include <algorithm>

#include "base/stage_log.h"

namespace linux_capture {
namespace {

// As many as the queue holds may have waited for one long turn.
constexpr int kMostLateInARow = 4;

// An encoder that is a little too slow falls behind again and again.
constexpr GstClockTime kStaysBehind = 2 * GST_SECOND;

// A turn that was held up by something else says nothing of the next.
constexpr GstClockTime kLongestTurn = 500 * GST_MSECOND;

}  // namespace

GstClockTime PictureBacklog::Now() const {
  return queue_ ? gst_element_get_current_running_time(queue_.get())
                : GST_CLOCK_TIME_NONE;
}

void PictureBacklog::StayBehind(GstClockTime now) {
  behindUntil_ = now + kStaysBehind;
  if (isReported_) return;
  isReported_ = true;
  LogCaptureStage("pipeline:encoder-behind=pictures-left-out");
}

bool PictureBacklog::LeavesOut(const GstBuffer* picture, GstClockTime period) {
  if (!queue_ || !GST_BUFFER_PTS_IS_VALID(picture) ||
      !GST_CLOCK_TIME_IS_VALID(period)) {
    return false;
  }
  guint waiting = 0;
  g_object_get(queue_.get(), "current-level-buffers", &waiting, nullptr);
  const GstClockTime now = Now();
  if (waiting == 0 || !GST_CLOCK_TIME_IS_VALID(now) ||
      now <= GST_BUFFER_PTS(picture) + period) {
    late_ = 0;
    return false;
  }
  ++late_;
  if (late_ < kMostLateInARow && now >= behindUntil_.load()) return false;
  StayBehind(now);
  return true;
}

bool PictureBacklog::HasNoTimeForCopies(GstClockTime period) const {
  const GstClockTime now = Now();
  if (!GST_CLOCK_TIME_IS_VALID(now)) return false;
  return now < behindUntil_.load() ||
         (GST_CLOCK_TIME_IS_VALID(period) && turnLength_.load() > period);
}

void PictureBacklog::BeginTurn() {
  const GstClockTime now = Now();
  turnBegan_ = GST_CLOCK_TIME_IS_VALID(now) ? now : 0;
  outputs_ = 0;
}

void PictureBacklog::EndTurn(GstClockTime period) {
  const GstClockTime now = Now();
  const GstClockTime began = turnBegan_.exchange(0);
  if (began == 0 || outputs_ == 0 || !GST_CLOCK_TIME_IS_VALID(now) ||
      now <= began) {
    return;
  }
  const GstClockTime length = (now - began) / outputs_;
  turnLength_ = std::min(length, kLongestTurn);
  if (!GST_CLOCK_TIME_IS_VALID(period) || length <= period) {
    longTurns_ = 0;
    return;
  }
  ++longTurns_;
  if (longTurns_ >= kMostLateInARow || began < behindUntil_.load()) {
    StayBehind(now);
  }
}

bool PictureBacklog::IsTooEarly(GstClockTime distance) const {
  const GstClockTime now = Now();
  const GstClockTime began = turnBegan_.load();
  return began != 0 && GST_CLOCK_TIME_IS_VALID(now) &&
         now < behindUntil_.load() &&
         now + distance < began + turnLength_.load();
}

}  // namespace linux_capture
