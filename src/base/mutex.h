#ifndef LINUX_CAPTURE_BASE_MUTEX_H_
#define LINUX_CAPTURE_BASE_MUTEX_H_

#include <mutex>

#include "base/thread_annotations.h"

namespace linux_capture {

// std::mutex as the compiler can check it: libstdc++ annotates nothing. The
// names of the functions are those that the standard library asks of a mutex.
class CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() noexcept = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() = default;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  [[nodiscard]] bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// Holds a mutex as long as it lives.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  // The caller has taken it already.
  MutexLock(Mutex& mutex, std::adopt_lock_t /*adopt*/) REQUIRES(mutex)
      : mutex_(mutex) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() RELEASE() { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_MUTEX_H_
