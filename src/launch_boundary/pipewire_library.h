#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_LIBRARY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_LIBRARY_H_

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

#include <pipewire/pipewire.h>

namespace linux_capture {

// What is used of PipeWire's library. It is loaded at run time, so that hosts
// which capture X11 only need not have it.
struct PipeWireLibrary {
  decltype(&pw_init) init = nullptr;
  decltype(&pw_loop_new) loopNew = nullptr;
  decltype(&pw_loop_destroy) loopDestroy = nullptr;
  decltype(&pw_context_new) contextNew = nullptr;
  decltype(&pw_context_destroy) contextDestroy = nullptr;
  decltype(&pw_context_connect_fd) contextConnectFd = nullptr;
  decltype(&pw_core_disconnect) coreDisconnect = nullptr;
  decltype(&pw_proxy_destroy) proxyDestroy = nullptr;
};

// Null where it is not installed.
const PipeWireLibrary* LoadPipeWire();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_LIBRARY_H_
