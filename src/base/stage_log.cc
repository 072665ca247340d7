#include "base/stage_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/clock.h"
#include "base/unique_fd.h"

namespace linux_capture {
namespace {

// A host may have handed its standard error to a pipe that nobody reads. A
// stage line is not worth stopping the JavaScript thread for, so a descriptor
// that cannot take it at once loses the line.
void WriteWithoutWaiting(int fd, std::string_view line) noexcept {
  pollfd ready{fd, POLLOUT, 0};
  if (poll(&ready, 1, 0) <= 0 || (ready.revents & POLLOUT) == 0) return;
  ssize_t written = 0;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
}

}  // namespace

std::string FormatStageLine(long processId, std::uint64_t timeMs,
                            std::string_view stage) {
  std::string line = "[linux_capture_stage] pid=";
  line += std::to_string(processId);
  line += " t=";
  line += std::to_string(timeMs);
  line += " stage=";
  // A text may hold words of others, GStreamer's for instance: they begin no
  // line of their own.
  for (const char c : stage) {
    const bool isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    line += isControl ? ' ' : c;
  }
  line += '\n';
  return line;
}

void WriteErrorOutput(std::string_view text) noexcept {
  WriteWithoutWaiting(STDERR_FILENO, text);
}

bool AppendStageLine(const char* path, std::string_view line) noexcept {
  // The path is in a directory that every user can write to: O_NOFOLLOW keeps
  // a planted link from redirecting the lines, O_NONBLOCK keeps a planted FIFO
  // from blocking the open, and the mode keeps the file to its owner.
  const UniqueFd file(open(path,
                           O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC |
                               O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                           S_IRUSR | S_IWUSR));
  if (!file) return false;
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_nlink != 1 || status.st_uid != geteuid()) {
    return false;
  }
  ssize_t written = 0;
  do {
    written = write(file.get(), line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  return written == static_cast<ssize_t>(line.size());
}

void LogCaptureStage(std::string_view stage) noexcept {
  try {
    const std::uint64_t timeMs = WallClockMs();
    WriteErrorOutput(
        FormatStageLine(static_cast<long>(getpid()), timeMs, stage));
    // Opened and closed for every line, so that a crash loses nothing.
    AppendStageLine(kStageLogPath, FormatStageLine(static_cast<long>(getpid()),
                                                   timeMs, stage));
  } catch (...) {
    // Out of memory for a diagnostic line: nothing better to do than lose it.
  }
}

}  // namespace linux_capture
