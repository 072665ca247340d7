#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_

#include <memory>

#include "common/host.h"
#include "targets/x11_targets.h"

namespace linux_capture::targets {

// Lists what is on the X display on a thread of its own, because nothing inside
// Xlib has a limit of time: a server that is stopped, or grabbed by one of its
// clients, blocks every call for as long as it likes.
class LimitedX11Listing {
 public:
  LimitedX11Listing();

  // Waits for the list. Throws what the listing threw, and when the server goes
  // away or leaves a question unanswered for some seconds, and HostIsDone when
  // the host is. The thread is given up in these cases.
  X11Targets Take(programs::Host& host);

  // Whether a thread is still inside Xlib. The process has to end
  // without its clean-up then.
  [[nodiscard]] static bool IsThreadLeft();

 private:
  struct Shared;

  std::shared_ptr<Shared> shared_;
};

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_
