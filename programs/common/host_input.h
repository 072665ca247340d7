#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_

#include <chrono>
#include <optional>
#include <string>

#include "common/host.h"

namespace linux_capture::programs {

// Standard input as the hand that a host keeps on a program: it stays open as
// long as the program is wanted, and the kernel closes it when the host dies.
class HostInput : public Host {
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

  bool WaitFor(int fd, std::chrono::milliseconds longest) override;

 private:
  std::string line_;
  bool isClosed_ = false;
};

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_HOST_INPUT_H_
