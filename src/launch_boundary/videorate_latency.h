#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_VIDEORATE_LATENCY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_VIDEORATE_LATENCY_H_

#include <gst/gst.h>

#include "launch_boundary/picture_backlog.h"

namespace linux_capture {

// videorate lets go of a picture only when the next one has come, so that it
// can choose the nearer of the two: every picture is late by one period of the
// source. The next one of a live source comes when it always comes, so the
// choice is already clear; here the element is told at once. Which picture goes
// out, and with which time, stays as it was.
//
// A gap that is longer than `longestFilledGap` (GST_CLOCK_TIME_NONE: none is)
// is left open instead of being filled with copies, all at once, in front of
// the picture that ends it.
//
// A picture that was repeated as a sign of life holds up none that is new: the
// one that ends a pause goes out at once, with its own time, and the times of
// the output go on from there. No branch has more pictures than it asked for in
// the long run.
//
// Where an encoder cannot keep up, the newest picture goes out instead of the
// oldest that waits for it (picture_backlog.h), and nothing fills the gap.
//
// Works on every videorate of the launched `pipeline`. Before PLAYING. Returns
// the branches' backlogs.
PictureBacklogs DeliverPicturesPromptly(GstElement* pipeline,
                                        GstClockTime longestFilledGap);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_VIDEORATE_LATENCY_H_
