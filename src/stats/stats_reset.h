#ifndef LINUX_CAPTURE_STATS_STATS_RESET_H_
#define LINUX_CAPTURE_STATS_STATS_RESET_H_

#include "base/capture_mutex.h"
#include "config/capture_config.h"

namespace linux_capture {

// What `resetStats` does: zeroes what was counted and keeps what describes the
// running session. JavaScript thread.
void ResetStatistics() EXCLUDES(g_mutex);

// Prepares every statistic and description for a new session of `config`, but
// for the probe of the hardware encoders.
// JavaScript thread, with no pipeline running.
void ResetForNewSession(const CaptureConfig& config) EXCLUDES(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATS_STATS_RESET_H_
