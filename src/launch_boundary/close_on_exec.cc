#include "launch_boundary/close_on_exec.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace linux_capture {
namespace {

using FolderPtr = std::unique_ptr<DIR, decltype([](DIR* folder) {
                                    static_cast<void>(closedir(folder));
                                  })>;

// Two connected sockets of this process that have no names.
bool IsSocketOfPair(int fd) {
  sockaddr_un own{};
  socklen_t ownSize = sizeof(own);
  sockaddr_un peer{};
  socklen_t peerSize = sizeof(peer);
  // The kernel's interface takes the common head of all addresses.
  return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &ownSize) == 0 &&
         own.sun_family == AF_UNIX && ownSize == sizeof(own.sun_family) &&
         getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0 &&
         peerSize == sizeof(peer.sun_family);
}

// The inheritable ends of socket pairs at this moment.
std::set<int> InheritableSocketPairs() {
  std::set<int> found;
  const FolderPtr folder(opendir("/proc/self/fd"));
  if (!folder) return found;
  while (const dirent* entry = readdir(folder.get())) {
    const int fd =
        static_cast<int>(std::strtol(&entry->d_name[0], nullptr, 10));
    const int flags = fcntl(fd, F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && IsSocketOfPair(fd)) {
      found.insert(fd);
    }
  }
  return found;
}

}  // namespace

ExecGuard::ExecGuard() : before_(InheritableSocketPairs()) {}

ExecGuard::~ExecGuard() {
  try {
    for (const int fd : InheritableSocketPairs()) {
      if (!before_.contains(fd)) fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
  } catch (...) {
    // Out of memory: the descriptors stay inheritable.
  }
}

}  // namespace linux_capture
