#include "launch_boundary/portal_connection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <optional>
#include <utility>

#include "launch_boundary/pipewire_connection.h"

namespace linux_capture {
namespace {

std::optional<int> SocketOption(int fd, int option) {
  int value = 0;
  socklen_t size = sizeof(value);
  if (getsockopt(fd, SOL_SOCKET, option, &value, &size) != 0) {
    return std::nullopt;
  }
  return value;
}

struct LocalAddress {
  sockaddr_un address{};
  socklen_t size = sizeof(sockaddr_un);
};

std::optional<LocalAddress> PeerAddress(int fd) {
  LocalAddress peer;
  // The kernel's interface takes the common head of all addresses.
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer.address), &peer.size) !=
      0) {
    return std::nullopt;
  }
  return peer;
}

bool IsOfSameServer(const UniqueFd& connection, int fd) {
  const pid_t peer = PeerProcess(fd);
  return connection && peer > 0 && PeerProcess(connection.get()) == peer;
}

}  // namespace

std::string WhyNoPipeWireConnection(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return "it is not open";
  if (!S_ISSOCK(status.st_mode)) return "it is not a socket";
  if (SocketOption(fd, SO_DOMAIN) != AF_UNIX ||
      SocketOption(fd, SO_TYPE) != SOCK_STREAM) {
    return "it is not a local stream socket";
  }
  if (SocketOption(fd, SO_ACCEPTCONN) == 1) return "it is a listening socket";
  if (!PeerAddress(fd)) return "it is not connected";
  if (IsHungUp(fd)) return "its other end has closed it";
  return {};
}

UniqueFd ConnectBeside(int fd) {
  const std::optional<LocalAddress> peer = PeerAddress(fd);
  // One of a pair has no address but its family.
  if (peer && peer->size > sizeof(sa_family_t)) {
    UniqueFd other(
        socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (other &&
        connect(other.get(), reinterpret_cast<const sockaddr*>(&peer->address),
                peer->size) == 0 &&
        IsOfSameServer(other, fd)) {
      return other;
    }
  }
  UniqueFd known = ConnectToPipeWire();
  if (!IsOfSameServer(known, fd)) known.reset();
  return known;
}

}  // namespace linux_capture
