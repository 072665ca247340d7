#ifndef LINUX_CAPTURE_BASE_GUARDED_TEXT_H_
#define LINUX_CAPTURE_BASE_GUARDED_TEXT_H_

#include <string>
#include <string_view>

#include "base/mutex.h"

namespace linux_capture {

// A text that any thread may write or read. Its mutex is a leaf: it is taken
// last and never held across a call out.
class GuardedText {
 public:
  void Set(std::string_view text) {
    const MutexLock lock(mutex_);
    text_.assign(text);
  }
  void Clear() { Set({}); }
  [[nodiscard]] std::string Get() const {
    const MutexLock lock(mutex_);
    return text_;
  }

 private:
  mutable Mutex mutex_;
  std::string text_ GUARDED_BY(mutex_);
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GUARDED_TEXT_H_
