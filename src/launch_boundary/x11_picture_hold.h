#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PICTURE_HOLD_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PICTURE_HOLD_H_

#include <gst/gst.h>

#include "base/capture_mutex.h"

namespace linux_capture {

// An X server refuses the picture of a window that is hidden or not wholly on
// the screen, and of a rectangle that a smaller screen no longer holds. The
// source does not notice and passes on whatever its memory held before, one
// old picture after another. Here such a picture is replaced by the last one
// that was read, and a refusal that lasts becomes an error message.

// The server has refused the picture that the calling thread asked for. From
// the X11 error handler.
void NoteRefusedPicture() noexcept;

// The picture that was refused goes no further.
void ForgetRefusedPicture() noexcept;

// Gives up the picture that the calling thread holds, at the end of a source's
// streaming thread: a picture belongs to its source, which would never go, and
// its memory can only be given back while the source has its connection.
void ReleaseHeldPicture() noexcept;

// Watches what every launched ximagesrc reads, after the guard, which ends a
// source that failed. Before PLAYING.
void HoldRefusedPictures(GstElement* pipeline);

// Posts one error message on the pipeline's bus for every time that pictures
// have been refused for a while. Returns its code until pictures can be read
// again, null otherwise. Bus thread.
const char* PostRefusedPictures(GstElement* pipeline) REQUIRES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_PICTURE_HOLD_H_
