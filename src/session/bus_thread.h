#ifndef LINUX_CAPTURE_SESSION_BUS_THREAD_H_
#define LINUX_CAPTURE_SESSION_BUS_THREAD_H_

#include <gst/gst.h>

#include <string>

#include "base/capture_mutex.h"

namespace linux_capture {

// Drains error and end-of-stream messages of `pipeline` (may be null), counts
// them and emits a lifecycle event for each. `name` is "video" or "audio".
void PollBus(GstElement* pipeline, const std::string& name) REQUIRES(g_mutex);

// Polls both pipelines every 100 ms until g_busThreadRunning is cleared. It
// never stops a capture by itself.
void BusThread() EXCLUDES(g_mutex);

// Ends the thread, if one runs, without waiting for the end of its round.
// The thread takes g_mutex while polling.
void EndBusThread() REQUIRES(g_controlMutex) EXCLUDES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_BUS_THREAD_H_
