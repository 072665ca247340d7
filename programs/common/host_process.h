#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_HOST_PROCESS_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_HOST_PROCESS_H_

#include <sys/types.h>
#include <unistd.h>

#include "common/host.h"

namespace linux_capture::programs {

// The process that started this one, for short work whose input may be
// anything. It is looked for while the program waits: the kernel's own signal
// for the purpose also comes when only the thread of the host has ended that
// the program was started on.
class HostProcess : public Host {
 public:
  bool WaitFor(int fd, std::chrono::milliseconds longest) override;

 private:
  pid_t pid_ = getppid();
};

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_HOST_PROCESS_H_
