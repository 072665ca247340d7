#include "launch_boundary/pipewire_library.h"

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

#include <dlfcn.h>

#include <memory>

#include "base/no_destroy.h"

namespace linux_capture {
namespace {

template <typename Function>
bool FindSymbol(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

std::unique_ptr<const PipeWireLibrary> OpenPipeWireLibrary() {
  // Never closed: GStreamer's plugin uses the same library.
  void* file = dlopen("libpipewire-0.3.so.0", RTLD_NOW | RTLD_LOCAL);
  auto library = std::make_unique<PipeWireLibrary>();
  if (file == nullptr || !FindSymbol(file, "pw_init", library->init) ||
      !FindSymbol(file, "pw_loop_new", library->loopNew) ||
      !FindSymbol(file, "pw_loop_destroy", library->loopDestroy) ||
      !FindSymbol(file, "pw_context_new", library->contextNew) ||
      !FindSymbol(file, "pw_context_destroy", library->contextDestroy) ||
      !FindSymbol(file, "pw_context_connect_fd", library->contextConnectFd) ||
      !FindSymbol(file, "pw_core_disconnect", library->coreDisconnect) ||
      !FindSymbol(file, "pw_proxy_destroy", library->proxyDestroy)) {
    // Untested: every version of the library has these.
    return nullptr;
  }
  library->init(nullptr, nullptr);
  return library;
}

}  // namespace

// Kept to the very end: when the process ends, a capture that still runs is
// stopped after the destructors of statics, and its registry calls these.
const PipeWireLibrary* LoadPipeWire() {
  static NoDestroy<std::unique_ptr<const PipeWireLibrary>> library(
      OpenPipeWireLibrary());
  return library->get();
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE
