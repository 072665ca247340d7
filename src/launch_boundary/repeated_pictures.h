#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_REPEATED_PICTURES_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_REPEATED_PICTURES_H_

#include <gst/gst.h>

namespace linux_capture {

// Whether a source has sent the picture again as a sign of life: nothing is
// lost with it. Converters and scalers hand this flag of GStreamer's on, unlike
// that for gaps.
inline bool IsRepetition(const GstBuffer* buffer) {
  return GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DROPPABLE);
}

// Makes the PipeWire sources of a launched pipeline tell what they repeat from
// what is new: a repetition must never hold up the picture that ends a pause.
// Before PLAYING.
void MarkRepetitions(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_REPEATED_PICTURES_H_
