#ifndef LINUX_CAPTURE_BASE_RELAXED_H_
#define LINUX_CAPTURE_BASE_RELAXED_H_

#include <atomic>

namespace linux_capture {

// A statistics value that several threads touch. Nothing is ordered by it, but
// no count is lost: the branches of a capture add to the same totals, which
// have to agree with the counts of each of them.
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
  void Add(T amount) noexcept {
    value_.fetch_add(amount, std::memory_order_relaxed);
  }
  void RaiseTo(T value) noexcept {
    T current = Get();
    while (value > current && !value_.compare_exchange_weak(
                                  current, value, std::memory_order_relaxed)) {
    }
  }
  void SetIfZero(T value) noexcept {
    T zero{};
    value_.compare_exchange_strong(zero, value, std::memory_order_relaxed);
  }

 private:
  std::atomic<T> value_{};
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_RELAXED_H_
