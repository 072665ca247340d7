#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_

#include <glib.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <vector>

namespace linux_capture::portal {

// Thrown where the program waits: the host wants no stream any more, which is
// no failure.
class HostIsDone : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override {
    return "the host is done";
  }
};

// Notices that the host closed standard input or asked the program to end, and
// that the time for the handshake is over.
class HostWatch {
 public:
  explicit HostWatch(std::optional<std::uint32_t> timeoutSeconds);
  HostWatch(const HostWatch&) = delete;
  HostWatch& operator=(const HostWatch&) = delete;
  ~HostWatch();

  // The stream was granted: from here on there is no limit.
  void LiftTimeout();

  // Throws when there is no sense in waiting longer.
  void Check() const;

 private:
  static gboolean OnInput(gint fd, GIOCondition condition, gpointer self);
  static gboolean OnSignal(gpointer self);
  static gboolean OnTimeout(gpointer self);

  std::vector<guint> sources_;
  guint timeout_ = 0;
  bool isHostDone_ = false;
  bool isTimeOver_ = false;
};

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_HOST_WATCH_H_
