#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_TARGETS_REPORT_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_TARGETS_REPORT_H_

#include <optional>
#include <string>
#include <vector>

#include "targets/pipewire_targets.h"
#include "targets/x11_targets.h"

namespace linux_capture::targets {

// Why a part could not be listed.
struct Problem {
  std::string part;
  std::string message;
};

// The line of JSON that the program prints. Nothing stands for a part that was
// not asked for or that could not be listed.
std::string ReportOf(const std::optional<PipeWireTargets>& pipeWire,
                     const std::optional<X11Targets>& x11,
                     const std::vector<Problem>& problems);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_TARGETS_REPORT_H_
