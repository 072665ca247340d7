#ifndef LINUX_CAPTURE_SESSION_BUS_THREAD_H_
#define LINUX_CAPTURE_SESSION_BUS_THREAD_H_

#include <gst/gst.h>

#include <string>

namespace linux_capture {

// Drains error and end-of-stream messages of `pipeline` (may be null), counts
// them and emits a lifecycle event for each. `name` is "video" or "audio".
// Capture mutex held.
void PollBus(GstElement* pipeline, const std::string& name);

// Polls both pipelines every 100 ms until g_busThreadRunning is cleared. It
// never stops a capture by itself.
void BusThread();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_BUS_THREAD_H_
