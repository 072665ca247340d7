#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_

#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {

// The queue at the head of a branch, seen from the thread that empties it. An
// encoder that takes longer than a picture's turn finds four pictures waiting
// before each one that it takes, and shows all of them late. It is given the
// newest instead, once it is clear that this is no passing delay: after one it
// catches up, and nothing is lost. From then on it stays behind until its turns
// are short again, be the queue empty between them or not. Of large pictures
// the queue holds only one, by their bytes, so turns that are too long count
// too.
class PictureBacklog {
 public:
  // None where `queue` is null.
  explicit PictureBacklog(GstElementPtr queue) : queue_(std::move(queue)) {}

  // Whether a picture that has left the queue is to be left out, since it is
  // older than the branch's `period` and a newer one waits. On the thread of
  // the branch, as what follows.
  bool LeavesOut(const GstBuffer* picture, GstClockTime period);

  // Whether copies would fill a gap at the cost of new pictures: the encoder is
  // behind, or it took longer than a `period` the last time.
  [[nodiscard]] bool HasNoTimeForCopies(GstClockTime period) const;

  // The turn of a picture that has left the queue, from there until its packet
  // and those of its copies are handed over.
  void BeginTurn();
  void CountOutput() { ++outputs_; }
  void EndTurn(GstClockTime period);

  // Whether a picture that comes now would wait in vain: the encoder is behind,
  // and by its last turn the next picture, `distance` later, still comes early
  // enough to be the one that it takes. Any thread.
  [[nodiscard]] bool IsTooEarly(GstClockTime distance) const;

 private:
  [[nodiscard]] GstClockTime Now() const;
  void StayBehind(GstClockTime now);

  GstElementPtr queue_;
  int late_ = 0;       // pictures in a row
  int longTurns_ = 0;  // in a row
  guint outputs_ = 0;  // of this turn
  bool isReported_ = false;
  // Running times, written by the branch's thread alone; 0 where there is none.
  std::atomic<GstClockTime> behindUntil_ = 0;
  std::atomic<GstClockTime> turnBegan_ = 0;
  std::atomic<GstClockTime> turnLength_ = 0;  // of the last, for one output
};

// Those of a pipeline, one for each branch.
using PictureBacklogs = std::vector<std::shared_ptr<PictureBacklog>>;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_
