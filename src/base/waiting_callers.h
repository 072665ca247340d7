#ifndef LINUX_CAPTURE_BASE_WAITING_CALLERS_H_
#define LINUX_CAPTURE_BASE_WAITING_CALLERS_H_

#include <chrono>

#include "base/mutex.h"

namespace linux_capture {

// The JavaScript threads that wait for one mutex, for who holds it: a server
// that stands still may hold up one caller for some seconds, but not all those
// behind it for as long again.
class WaitingCallers {
 public:
  // Announces a caller as long as it lives.
  class Caller {
   public:
    explicit Caller(WaitingCallers& callers) : callers_(callers) {
      const MutexLock lock(callers_.mutex_);
      if (callers_.count_++ == 0) callers_.since_ = Clock::now();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    ~Caller() {
      const MutexLock lock(callers_.mutex_);
      --callers_.count_;
    }

   private:
    WaitingCallers& callers_;
  };

  // Whether there has been somebody for longer than `time`. While they take
  // turns nobody looks at who of them came first.
  [[nodiscard]] bool HaveWaited(std::chrono::milliseconds time) const {
    const MutexLock lock(mutex_);
    return count_ > 0 && Clock::now() - since_ > time;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // A leaf.
  mutable Mutex mutex_;
  int count_ GUARDED_BY(mutex_) = 0;
  Clock::time_point since_ GUARDED_BY(mutex_);
};

// Holds a mutex as long as it lives, and is announced while it waits for it.
class SCOPED_CAPABILITY CallerLock {
 public:
  CallerLock(Mutex& mutex, WaitingCallers& callers) ACQUIRE(mutex)
      : mutex_(mutex) {
    if (mutex_.try_lock()) return;
    const WaitingCallers::Caller caller(callers);
    mutex_.lock();
  }
  CallerLock(const CallerLock&) = delete;
  CallerLock& operator=(const CallerLock&) = delete;
  ~CallerLock() RELEASE() { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_WAITING_CALLERS_H_
