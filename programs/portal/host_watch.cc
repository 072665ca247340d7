#include "portal/host_watch.h"

#include <glib-unix.h>
#include <signal.h>

#include <memory>

#include "base/c_callback.h"
#include "common/program_error.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusRefused;
using programs::kStatusUsage;
using programs::ProgramError;

// A person may type the line; a host that forgot it must not wait for ever.
constexpr std::chrono::seconds kLineLimit{60};

}  // namespace

HostWatch::HostWatch(std::optional<std::uint32_t> timeoutSeconds) {
  sources_.push_back(g_unix_fd_add(
      programs::HostInput::fd(),
      static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR | G_IO_NVAL),
      NoThrow<&HostWatch::OnInput>, this));
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    sources_.push_back(
        g_unix_signal_add(number, NoThrow<&HostWatch::OnSignal>, this));
  }
  if (timeoutSeconds) {
    timeout_ = g_timeout_add_seconds(*timeoutSeconds,
                                     NoThrow<&HostWatch::OnTimeout>, this);
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

bool HostWatch::WaitUntil(const std::function<bool()>& isDone,
                          std::optional<std::chrono::seconds> limit) {
  bool isOver = false;
  const auto remove = [](const guint* source) {
    if (*source != 0) g_source_remove(*source);
  };
  guint source = 0;
  const std::unique_ptr<guint, decltype(remove)> alarm(&source, remove);
  // It wakes the loop, and stays until it is removed.
  if (limit) {
    source = g_timeout_add_seconds(static_cast<guint>(limit->count()),
                                   NoThrow<&HostWatch::OnLimit>, &isOver);
  }
  for (;;) {
    Check();
    if (isDone()) return true;
    if (isOver) return false;
    g_main_context_iteration(nullptr, TRUE);
  }
}

std::string HostWatch::WaitForLine() {
  std::optional<std::string> line;
  const auto hasLine = [&] {
    line = input_.first_line();
    return line.has_value();
  };
  if (!WaitUntil(hasLine, kLineLimit)) {
    // Untested: a test would have to wait for that limit.
    throw ProgramError(kStatusUsage, "no line came on standard input");
  }
  return *line;
}

void HostWatch::Check() const {
  if (isEndAsked_ || input_.is_closed()) throw HostIsDone();
  if (isTimeOver_) {
    throw ProgramError(kStatusRefused,
                       "the portal granted no stream in the time given");
  }
}

gboolean HostWatch::OnInput(gint, GIOCondition, gpointer self) {
  // An input that has ended stays readable, but nothing waits any more then.
  static_cast<HostWatch*>(self)->input_.Read();
  return G_SOURCE_CONTINUE;
}

gboolean HostWatch::OnSignal(gpointer self) {
  static_cast<HostWatch*>(self)->isEndAsked_ = true;
  return G_SOURCE_CONTINUE;
}

gboolean HostWatch::OnTimeout(gpointer self) {
  static_cast<HostWatch*>(self)->isTimeOver_ = true;
  static_cast<HostWatch*>(self)->timeout_ = 0;
  return G_SOURCE_REMOVE;
}

gboolean HostWatch::OnLimit(gpointer isOver) {
  *static_cast<bool*>(isOver) = true;
  return G_SOURCE_CONTINUE;
}

}  // namespace linux_capture::portal
