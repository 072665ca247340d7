#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_CLOSE_ON_EXEC_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_CLOSE_ON_EXEC_H_

#include <set>

namespace linux_capture {

// GStreamer makes the socket pairs that wake its threads without close-on-exec,
// so every program that the host starts during a capture would inherit them.
// While this object lives pipelines are launched and started; at its end the
// socket pairs that came up meanwhile are marked. Only those: another thread of
// the host may open a descriptor at the same time and mean it to be inherited.
class ExecGuard {
 public:
  ExecGuard();
  ExecGuard(const ExecGuard&) = delete;
  ExecGuard& operator=(const ExecGuard&) = delete;
  ~ExecGuard();

 private:
  std::set<int> before_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_CLOSE_ON_EXEC_H_
