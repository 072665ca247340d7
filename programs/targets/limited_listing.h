#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_

#include <memory>

#include "targets/x11_targets.h"

namespace linux_capture::targets {

// Lists what is on the X display on a thread of its own, because nothing inside
// Xlib has a limit of time: a server that is stopped, or grabbed by one of its
// clients, blocks every call for as long as it likes.
class LimitedX11Listing {
 public:
  LimitedX11Listing();

  // Waits for the list. Throws what the listing threw, and when the server
  // leaves a question unanswered for some seconds. The thread is given up then.
  X11Targets Take();

  // The process has to end without its clean-up while such a thread is left.
  [[nodiscard]] bool is_given_up() const { return isGivenUp_; }

 private:
  struct Shared;

  std::shared_ptr<Shared> shared_;
  bool isGivenUp_ = false;
};

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_LIMITED_LISTING_H_
