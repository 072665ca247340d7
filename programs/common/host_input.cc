#include "common/host_input.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "common/program_error.h"

namespace linux_capture::programs {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 65'536;

int MillisecondsUntil(Clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

}  // namespace

bool HostInput::IsThere() { return fcntl(STDIN_FILENO, F_GETFD) != -1; }

int HostInput::fd() { return STDIN_FILENO; }

void HostInput::Read() {
  std::array<char, 4096> bytes{};
  const ssize_t length = read(STDIN_FILENO, bytes.data(), bytes.size());
  if (length < 0) {
    isClosed_ = errno != EAGAIN && errno != EINTR;
    return;
  }
  isClosed_ = length == 0;
  if (line_.size() <= kLongestLine && line_.find('\n') == std::string::npos) {
    line_.append(bytes.data(), static_cast<std::size_t>(length));
  }
}

std::optional<std::string> HostInput::first_line() const {
  const std::size_t end = line_.find('\n');
  if (std::min(end, line_.size()) > kLongestLine) {
    throw ProgramError(kStatusUsage,
                       "the first line of standard input is too long");
  }
  if (end == std::string::npos) return std::nullopt;
  return line_.substr(0, end);
}

bool HostInput::WaitFor(int fd, std::chrono::milliseconds longest) {
  const Clock::time_point deadline = Clock::now() + longest;
  for (;;) {
    std::array<pollfd, 2> watched{{{STDIN_FILENO, POLLIN, 0}, {fd, POLLIN, 0}}};
    // A signal or nothing at all: the deadline decides.
    if (poll(watched.data(), watched.size(), MillisecondsUntil(deadline)) > 0) {
      if (watched[0].revents != 0) Read();
      if (isClosed_) throw HostIsDone();
      if (watched[1].revents != 0) return true;
    }
    if (Clock::now() >= deadline) return false;
  }
}

}  // namespace linux_capture::programs
