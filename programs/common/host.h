#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_HOST_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_HOST_H_

#include <chrono>
#include <exception>

namespace linux_capture::programs {

// Thrown where a program waits: its host wants no more of it, which is no
// failure.
class HostIsDone : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override {
    return "the host is done";
  }
};

// Who wants the work of a program. Waits end when nobody does any more.
class Host {
 public:
  static constexpr int kNothing = -1;

  virtual ~Host() = default;

  // Waits until the descriptor can be read, at most for the given time; true
  // when it can. Throws HostIsDone as soon as the host is.
  virtual bool WaitFor(int fd, std::chrono::milliseconds longest) = 0;
};

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_HOST_H_
