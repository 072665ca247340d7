#include "addon/descriptor_duplication.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/coded_error.h"
#include "base/unique_fd.h"

namespace linux_capture {
namespace {

#ifndef SYS_pidfd_open
constexpr long kPidfdOpen = 434;
#else
constexpr long kPidfdOpen = SYS_pidfd_open;
#endif
#ifndef SYS_pidfd_getfd
constexpr long kPidfdGetfd = 438;
#else
constexpr long kPidfdGetfd = SYS_pidfd_getfd;
#endif

std::string ErrnoText(int error) {
  char buffer[256] = {};
  // The GNU variant may return a static text instead of filling the buffer.
  return strerror_r(error, buffer, sizeof(buffer));
}

}  // namespace

int DuplicateDescriptorFromProcess(std::int32_t pid, std::int32_t targetFd) {
  if (pid <= 0) {
    throw CodedError(error_code::kInvalidArgument, "pid must be positive");
  }
  if (targetFd < 0) {
    throw CodedError(error_code::kInvalidArgument,
                     "targetFd must be non-negative");
  }

  UniqueFd process(static_cast<int>(syscall(kPidfdOpen, pid, 0)));
  if (!process) {
    throw CodedError(error_code::kProcessUnreachable,
                     "pidfd_open failed for portal helper pid " +
                         std::to_string(pid) + ": " + ErrnoText(errno));
  }
  const int duplicate =
      static_cast<int>(syscall(kPidfdGetfd, process.get(), targetFd, 0));
  // The close of the pidfd must not replace the error of the call above.
  const int error = errno;
  process.reset();
  if (duplicate < 0) {
    throw CodedError(error_code::kProcessUnreachable,
                     "pidfd_getfd failed for portal helper pid " +
                         std::to_string(pid) + " fd " +
                         std::to_string(targetFd) + ": " + ErrnoText(error));
  }
  return duplicate;
}

}  // namespace linux_capture
