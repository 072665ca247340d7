#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_BUFFER_COPY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_BUFFER_COPY_H_

#include <gst/gst.h>

namespace linux_capture {

// Keeps what the PipeWire sources of a launched pipeline deliver readable
// after its producer has gone. Not for pipelines that work on the producer's
// own graphics memory. Before PLAYING.
void OutliveProducers(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_BUFFER_COPY_H_
