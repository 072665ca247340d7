#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_ERROR_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_ERROR_H_

#include <stdexcept>
#include <string>

namespace linux_capture::programs {

// Ends a program with one line on standard error and an exit status that tells
// its caller what kind of failure it was.
class ProgramError : public std::runtime_error {
 public:
  ProgramError(int status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  [[nodiscard]] int status() const noexcept { return status_; }

 private:
  int status_;
};

// The statuses that docs/programs.md lists.
inline constexpr int kStatusUnexpected = 1;
inline constexpr int kStatusUsage = 2;
inline constexpr int kStatusCancelled = 3;
inline constexpr int kStatusRefused = 4;
inline constexpr int kStatusNoPortal = 5;
inline constexpr int kStatusSessionEnded = 6;
inline constexpr int kStatusMissingElement = 7;

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_ERROR_H_
