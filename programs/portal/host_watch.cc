#include "portal/host_watch.h"

#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "common/program_error.h"

namespace linux_capture::portal {

using programs::kStatusRefused;
using programs::ProgramError;

HostWatch::HostWatch(std::optional<std::uint32_t> timeoutSeconds) {
  sources_.push_back(g_unix_fd_add(
      STDIN_FILENO,
      static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR | G_IO_NVAL),
      OnInput, this));
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    sources_.push_back(g_unix_signal_add(number, OnSignal, this));
  }
  if (timeoutSeconds) {
    timeout_ = g_timeout_add_seconds(*timeoutSeconds, OnTimeout, this);
  }
}

HostWatch::~HostWatch() {
  LiftTimeout();
  for (const guint source : sources_) g_source_remove(source);
}

void HostWatch::LiftTimeout() {
  if (timeout_ != 0) g_source_remove(timeout_);
  timeout_ = 0;
  isTimeOver_ = false;
}

void HostWatch::Check() const {
  if (isHostDone_) throw HostIsDone();
  if (isTimeOver_) {
    throw ProgramError(kStatusRefused,
                       "the portal granted no stream in the time given");
  }
}

gboolean HostWatch::OnInput(gint fd, GIOCondition condition, gpointer self) {
  std::array<char, 256> ignored{};
  const bool isReadable = (condition & (G_IO_IN | G_IO_HUP)) != 0;
  const ssize_t length =
      isReadable ? read(fd, ignored.data(), ignored.size()) : 0;
  const bool isOpen =
      length > 0 || (length < 0 && (errno == EAGAIN || errno == EINTR));
  // An input that has ended stays readable, but nothing waits any more then.
  if (!isOpen) static_cast<HostWatch*>(self)->isHostDone_ = true;
  return G_SOURCE_CONTINUE;
}

gboolean HostWatch::OnSignal(gpointer self) {
  static_cast<HostWatch*>(self)->isHostDone_ = true;
  return G_SOURCE_CONTINUE;
}

gboolean HostWatch::OnTimeout(gpointer self) {
  static_cast<HostWatch*>(self)->isTimeOver_ = true;
  static_cast<HostWatch*>(self)->timeout_ = 0;
  return G_SOURCE_REMOVE;
}

}  // namespace linux_capture::portal
