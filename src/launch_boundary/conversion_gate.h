#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_CONVERSION_GATE_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_CONVERSION_GATE_H_

#include <gst/gst.h>

#include "launch_boundary/picture_backlog.h"

namespace linux_capture {

// A picture that every branch would leave out for a newer one is left out in
// front of the conversion, which costs a large screen more than all else that
// is not the encoder. Only for a source that goes on at its rate: of one that
// sends what changes, this may be the last picture for long. Before PLAYING.
void SpareConversions(GstElement* pipeline, const PictureBacklogs& branches);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_CONVERSION_GATE_H_
