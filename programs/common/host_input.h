#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_

#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>

namespace linux_capture::programs {

// Thrown where a program waits: its host wants no more of it, which is no
// failure.
class HostIsDone : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override {
    return "the host is done";
  }
};

// Standard input as the hand that a host keeps on a program: it stays open as
// long as the program is wanted, and the kernel closes it when the host dies.
class HostInput {
 public:
  // Whether there is an input at all. Without one the next descriptor that is
  // opened would take its place.
  [[nodiscard]] static bool IsThere();

  // The number to poll.
  [[nodiscard]] static int fd();

  // To be called when there is something to read, or an end.
  void Read();
  [[nodiscard]] bool is_closed() const { return isClosed_; }

  // The first line, when it has come whole; what follows it is not looked at.
  // Throws a ProgramError for one longer than any that makes sense.
  [[nodiscard]] std::optional<std::string> first_line() const;

  // Waits until `other` (-1: nothing) can be read, at most for the given time;
  // true when it can. Throws HostIsDone as soon as the input is closed.
  bool WaitFor(int other, std::chrono::milliseconds longest);

 private:
  std::string line_;
  bool isClosed_ = false;
};

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_
