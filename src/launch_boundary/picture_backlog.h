#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_

#include <gst/gst.h>

#include <utility>

#include "base/gst_handles.h"

namespace linux_capture {

// The queue at the head of a branch, seen from the thread that empties it. An
// encoder that takes longer than a picture's turn finds four pictures waiting
// before each one that it takes, and shows all of them late. It is given the
// newest instead, once it is clear that this is no passing delay: after one it
// catches up, and nothing is lost.
class PictureBacklog {
 public:
  // None where `queue` is null.
  explicit PictureBacklog(GstElementPtr queue) : queue_(std::move(queue)) {}

  // Whether a picture that has left the queue is to be left out, since it is
  // older than the branch's `period` and a newer one waits. Any thread, one at
  // a time.
  bool LeavesOut(const GstBuffer* picture, GstClockTime period);

 private:
  GstElementPtr queue_;
  int late_ = 0;  // pictures in a row
  GstClockTime behindUntil_ = 0;
  bool isReported_ = false;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BACKLOG_H_
