#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_WATCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_WATCH_H_

#include <gst/gst.h>

#include "base/capture_mutex.h"

namespace linux_capture {

// Most PipeWire releases answer a target that does not exist with half a
// minute of waiting or with another source, and the end of a source or of the
// daemon with silence. So each pipeline with a PipeWire source carries a watch
// of its own, which ends with it.

// Watches every pipewiresrc of the launched `pipeline` from now on. The
// pipeline is the caller's alone.
void WatchPipeWireSources(GstElement* pipeline);

// Posts an error message on the pipeline's bus for every source that went away
// and for a lost connection, each once, and each time that the daemon stands
// still. Returns the code of that until it answers again, null otherwise.
// `pipeline` may be null. Bus thread.
const char* PostLostSources(GstElement* pipeline) REQUIRES(g_mutex);

// Whether a source gives other pictures than the pipeline was told, and it does
// not follow: a start need not wait for what cannot come. For the thread that
// starts the pipeline.
bool HasLostFormat(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_WATCH_H_
