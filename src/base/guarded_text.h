#ifndef LINUX_CAPTURE_BASE_GUARDED_TEXT_H_
#define LINUX_CAPTURE_BASE_GUARDED_TEXT_H_

#include <mutex>
#include <string>
#include <string_view>

namespace linux_capture {

// A text that any thread may write or read. Its mutex is a leaf: it is taken
// last and never held across a call out.
class GuardedText {
 public:
  void Set(std::string_view text) {
    const std::lock_guard lock(mutex_);
    text_.assign(text);
  }
  void Clear() { Set({}); }
  [[nodiscard]] std::string Get() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  mutable std::mutex mutex_;
  std::string text_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GUARDED_TEXT_H_
