#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_OUTPUT_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_OUTPUT_H_

#include <string>
#include <string_view>

#include "common/host_input.h"

namespace linux_capture::programs {

// Writes the text and a line end to standard output. Returns false when nobody
// reads there any more. With a host this also ends, by HostIsDone, when the
// host closes its input without reading on.
bool PrintLine(const std::string& text, HostInput* host = nullptr);

// The same for any bytes, without a line end.
bool Print(std::string_view bytes, HostInput* host = nullptr);

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_OUTPUT_H_
