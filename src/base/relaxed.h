#ifndef LINUX_CAPTURE_BASE_RELAXED_H_
#define LINUX_CAPTURE_BASE_RELAXED_H_

#include <atomic>

namespace linux_capture {

// A statistics value that several threads touch. Every access is a relaxed
// load or store, so it costs what a plain integer costs; Add is a load and a
// store, not a locked instruction, so two threads adding at the same instant
// may lose one count. That is accepted for statistics and never for state.
template <typename T>
class Relaxed {
 public:
  constexpr Relaxed() noexcept = default;
  constexpr explicit Relaxed(T initial) noexcept : value_(initial) {}
  Relaxed(const Relaxed& other) noexcept : value_(other.Get()) {}
  Relaxed& operator=(const Relaxed& other) noexcept {
    Set(other.Get());
    return *this;
  }
  ~Relaxed() = default;

  [[nodiscard]] T Get() const noexcept {
    return value_.load(std::memory_order_relaxed);
  }
  void Set(T value) noexcept { value_.store(value, std::memory_order_relaxed); }
  void Add(T amount) noexcept { Set(static_cast<T>(Get() + amount)); }
  void RaiseTo(T value) noexcept {
    if (value > Get()) Set(value);
  }
  void SetIfZero(T value) noexcept {
    if (Get() == T{}) Set(value);
  }

 private:
  std::atomic<T> value_{};
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_RELAXED_H_
