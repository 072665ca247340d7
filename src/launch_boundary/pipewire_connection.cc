#include "launch_boundary/pipewire_connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>

namespace linux_capture {

std::string PipeWireSocketPath(
    const std::function<const char*(const char*)>& variable) {
  const auto read = [&variable](const char* name) {
    const char* value = variable(name);
    return std::string(value == nullptr ? "" : value);
  };
  std::string name = read("PIPEWIRE_REMOTE");
  if (name.empty()) name = "pipewire-0";
  if (name.front() == '/') return name;
  // A list of names or a word with a meaning of its own.
  if (name.find_first_of("[{ ") != std::string::npos || name == "internal") {
    return {};
  }
  std::string folder = read("PIPEWIRE_RUNTIME_DIR");
  if (folder.empty()) folder = read("XDG_RUNTIME_DIR");
  return folder.empty() ? std::string() : folder + "/" + name;
}

UniqueFd ConnectToPipeWire() {
  const std::string path =
      PipeWireSocketPath([](const char* name) { return std::getenv(name); });
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) return {};
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address),
                     sizeof(address)) != 0) {
    return {};
  }
  return fd;
}

pid_t PeerProcess(int fd) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid
                                                                    : -1;
}

bool IsHungUp(int fd) {
  pollfd polled{fd, 0, 0};
  return fd >= 0 && poll(&polled, 1, 0) > 0 && (polled.revents & POLLHUP) != 0;
}

}  // namespace linux_capture
