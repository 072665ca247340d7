#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_CONNECTION_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_CONNECTION_H_

#include <sys/types.h>

#include <functional>
#include <string>

#include "base/unique_fd.h"

namespace linux_capture {

// The file name of the socket at which PipeWire's clients find their daemon,
// or an empty text when there is none to be known. `variable` looks up an
// environment variable and returns null for a missing one.
std::string PipeWireSocketPath(
    const std::function<const char*(const char*)>& variable);

// A new connection to the daemon; empty when there is none.
UniqueFd ConnectToPipeWire();

// The process at the other end of a local socket, or -1.
pid_t PeerProcess(int fd);

// True once the other end has closed the connection. Nothing is read.
bool IsHungUp(int fd);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_CONNECTION_H_
