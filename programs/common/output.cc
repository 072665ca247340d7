#include "common/output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>

namespace linux_capture::programs {
namespace {

// A pipe that polls as writable takes this much without blocking (PIPE_BUF).
constexpr std::size_t kPiece = 4096;

void WaitUntilWritable(HostInput* host) {
  std::array<pollfd, 2> watched{
      {{STDOUT_FILENO, POLLOUT, 0},
       {host == nullptr ? -1 : HostInput::fd(), POLLIN, 0}}};
  do {
    watched[0].revents = 0;
    watched[1].revents = 0;
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    if (watched[1].revents != 0) {
      host->Read();
      if (host->is_closed()) throw HostIsDone();
    }
  } while (watched[0].revents == 0);
}

}  // namespace

bool PrintLine(const std::string& text, HostInput* host) {
  return Print(text + '\n', host);
}

bool Print(std::string_view bytes, HostInput* host) {
  std::string_view left = bytes;
  while (!left.empty()) {
    WaitUntilWritable(host);
    const ssize_t written =
        write(STDOUT_FILENO, left.data(), std::min(left.size(), kPiece));
    if (written > 0) {
      left.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      return false;
    }
  }
  return true;
}

}  // namespace linux_capture::programs
