#include "common/host_process.h"

#include <poll.h>

#include <algorithm>

namespace linux_capture::programs {

bool HostProcess::WaitFor(int fd, std::chrono::milliseconds longest) {
  constexpr std::chrono::milliseconds kLook{100};
  for (;;) {
    if (getppid() != pid_) throw HostIsDone();
    const std::chrono::milliseconds turn = std::min(longest, kLook);
    pollfd watched{fd, POLLIN, 0};
    if (poll(&watched, 1, static_cast<int>(turn.count())) > 0) return true;
    longest -= turn;
    if (longest.count() <= 0) return false;
  }
}

}  // namespace linux_capture::programs
