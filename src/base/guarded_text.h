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
    SetWith(text, [] {});
  }
  [[nodiscard]] std::string Get() const {
    return GetWith([] {});
  }

  // `also` is done at the same moment for all who write or read by these two:
  // a count that belongs to the text is neither ahead of it nor behind.
  template <typename Also>
  void SetWith(std::string_view text, Also also) {
    const MutexLock lock(mutex_);
    text_.assign(text);
    also();
  }
  template <typename Also>
  [[nodiscard]] std::string GetWith(Also also) const {
    const MutexLock lock(mutex_);
    also();
    return text_;
  }

 private:
  mutable Mutex mutex_;
  std::string text_ GUARDED_BY(mutex_);
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GUARDED_TEXT_H_
