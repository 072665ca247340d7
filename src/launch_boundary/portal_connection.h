#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PORTAL_CONNECTION_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PORTAL_CONNECTION_H_

#include <string>

#include "base/unique_fd.h"

namespace linux_capture {

// What a host gives as a connection to PipeWire may be anything, and the source
// finds out by waiting for an answer for up to two minutes.

// Why the descriptor cannot be a connection to PipeWire, as the kernel knows
// it; empty when it may be one. Nothing is sent or read.
std::string WhyNoPipeWireConnection(int fd);

// Another connection to the server that `fd` is connected to: by its address,
// or to the PipeWire of the environment where that is the same process. Empty
// when there is no way to the same server.
UniqueFd ConnectBeside(int fd);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PORTAL_CONNECTION_H_
