#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_

#include <glib.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/host_input.h"

namespace linux_capture::portal {

using programs::HostIsDone;

// Notices that the host closed standard input or asked the program to end, and
// that the time for the handshake is over. Every wait of the program is one of
// this object.
class HostWatch {
 public:
  explicit HostWatch(std::optional<std::uint32_t> timeoutSeconds);
  HostWatch(const HostWatch&) = delete;
  HostWatch& operator=(const HostWatch&) = delete;
  ~HostWatch();

  // The stream was granted: from here on there is no limit.
  void LiftTimeout();

  // Runs the main loop until `isDone` says so; false when that takes longer
  // than the limit, where there is one. Throws when there is no sense in
  // waiting longer.
  bool WaitUntil(const std::function<bool()>& isDone,
                 std::optional<std::chrono::seconds> limit = std::nullopt);

  // Waits for the first line of standard input.
  std::string WaitForLine();

 private:
  void Check() const;

  static gboolean OnInput(gint fd, GIOCondition condition, gpointer self);
  static gboolean OnSignal(gpointer self);
  static gboolean OnTimeout(gpointer self);
  static gboolean OnLimit(gpointer isOver);

  std::vector<guint> sources_;
  guint timeout_ = 0;
  programs::HostInput input_;
  bool isEndAsked_ = false;
  bool isTimeOver_ = false;
};

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_
