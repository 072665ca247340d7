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

// Ends the thread, if one runs, without waiting for the end of its round.
// g_controlMutex held, g_mutex not: the thread takes it while polling.
void EndBusThread();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_SESSION_BUS_THREAD_H_
