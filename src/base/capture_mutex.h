#ifndef LINUX_CAPTURE_BASE_CAPTURE_MUTEX_H_
#define LINUX_CAPTURE_BASE_CAPTURE_MUTEX_H_

#include "base/mutex.h"
#include "base/waiting_callers.h"

namespace linux_capture {

// The two outer mutexes. They stand on the lowest floor because functions of
// every floor say that they need them.

// Serialises setup, stop and new targets of sound when several JavaScript
// threads (the main one and workers) have loaded the module. Outermost; no
// JavaScript runs while it is held.
inline Mutex g_controlMutex;

// The capture mutex, which guards what a capture is. It is taken before every
// other mutex of the module but g_controlMutex. Appsink callbacks never take
// it, so a pipeline may be stopped under it.
inline Mutex g_mutex ACQUIRED_AFTER(g_controlMutex);

// JavaScript threads take both by a CallerLock: a start that is held up from
// outside holds them too, and looks at who waits.
inline WaitingCallers g_controlCallers;
inline WaitingCallers g_captureCallers;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_CAPTURE_MUTEX_H_
