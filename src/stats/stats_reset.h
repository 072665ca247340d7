#ifndef LINUX_CAPTURE_STATS_STATS_RESET_H_
#define LINUX_CAPTURE_STATS_STATS_RESET_H_

#include "config/capture_config.h"

namespace linux_capture {

// What `resetStats` does: zeroes what was counted and keeps what describes the
// running session. JavaScript thread; takes the capture mutex.
void ResetStatistics();

// Prepares every statistic and description for a new session of `config`, but
// for the probe of the hardware encoders.
// JavaScript thread, with no pipeline running; takes the capture mutex.
void ResetForNewSession(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATS_STATS_RESET_H_
