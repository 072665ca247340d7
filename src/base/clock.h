#ifndef LINUX_CAPTURE_BASE_CLOCK_H_
#define LINUX_CAPTURE_BASE_CLOCK_H_

#include <chrono>
#include <cstdint>

namespace linux_capture {

// Wall clock in whole milliseconds since the Unix epoch.
inline std::uint64_t WallClockMs() noexcept {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const auto ns =
      std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
  return static_cast<std::uint64_t>(ns) / 1'000'000U;
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_CLOCK_H_
