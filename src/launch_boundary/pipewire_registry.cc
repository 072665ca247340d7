#include "launch_boundary/pipewire_registry.h"

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

#include <dlfcn.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/c_callback.h"
#include "base/no_destroy.h"

namespace linux_capture {
namespace {

// The library is loaded at run time, so that hosts which capture X11 only need
// not have it.
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
    return nullptr;
  }
  library->init(nullptr, nullptr);
  return library;
}

// Kept to the very end: when the process ends, a capture that still runs is
// stopped after the destructors of statics, and its registry calls these.
const PipeWireLibrary* LoadPipeWire() {
  static NoDestroy<std::unique_ptr<const PipeWireLibrary>> library(
      OpenPipeWireLibrary());
  return library->get();
}

// PipeWire's headers call methods by macros in the manner of GNU C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
void ListenToCore(pw_core* core, spa_hook* hook, const pw_core_events* events,
                  void* data) {
  pw_core_add_listener(core, hook, events, data);
}

int SyncCore(pw_core* core) { return pw_core_sync(core, PW_ID_CORE, 0); }

void ListenToRegistry(pw_registry* registry, spa_hook* hook,
                      const pw_registry_events* events, void* data) {
  pw_registry_add_listener(registry, hook, events, data);
}

// One round of the loop; the number of things done, or less than one.
int RunLoopOnce(pw_loop* loop, int timeoutMs) {
  pw_loop_enter(loop);
  const int done = pw_loop_iterate(loop, timeoutMs);
  pw_loop_leave(loop);
  return done;
}
#pragma GCC diagnostic pop

struct PipeWireObject {
  std::uint32_t id;
  std::string serial;
  std::string readNode;      // of a link: the id of the node it reads from
  std::string metadataName;  // of a metadata object
};

std::string Property(const spa_dict* properties, const char* key) {
  const char* value =
      properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
  return value == nullptr ? std::string() : std::string(value);
}

class ListeningRegistry final : public PipeWireRegistry {
 public:
  explicit ListeningRegistry(const PipeWireLibrary& library)
      : library_(library) {}
  ListeningRegistry(const ListeningRegistry&) = delete;
  ListeningRegistry& operator=(const ListeningRegistry&) = delete;
  ~ListeningRegistry() override {
    if (registry_ != nullptr) {
      library_.proxyDestroy(reinterpret_cast<pw_proxy*>(registry_));
    }
    if (core_ != nullptr) library_.coreDisconnect(core_);
    if (context_ != nullptr) library_.contextDestroy(context_);
    if (loop_ != nullptr) library_.loopDestroy(loop_);
  }

  // False when the daemon did not answer in time.
  bool Connect(UniqueFd connection) {
    loop_ = library_.loopNew(nullptr);
    if (loop_ == nullptr) return false;
    context_ = library_.contextNew(loop_, nullptr, 0);
    if (context_ == nullptr) return false;
    // The descriptor belongs to the connection from here on.
    core_ =
        library_.contextConnectFd(context_, connection.release(), nullptr, 0);
    if (core_ == nullptr) return false;
    coreEvents_.version = PW_VERSION_CORE_EVENTS;
    coreEvents_.done = NoThrow<&ListeningRegistry::OnDone>;
    ListenToCore(core_, &coreListener_, &coreEvents_, this);
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    if (registry_ == nullptr) return false;
    registryEvents_.version = PW_VERSION_REGISTRY_EVENTS;
    registryEvents_.global = NoThrow<&ListeningRegistry::OnGlobal>;
    registryEvents_.global_remove = NoThrow<&ListeningRegistry::OnGlobalRemove>;
    ListenToRegistry(registry_, &registryListener_, &registryEvents_, this);
    expected_ = SyncCore(core_);
    return WaitForAnswer();
  }

  void Update(int timeoutMs) override {
    // As many rounds as there is something to do in, within reason.
    int timeout = timeoutMs;
    for (int round = 0; round < 64; ++round) {
      if (RunLoopOnce(loop_, timeout) <= 0) break;
      timeout = 0;
    }
  }

  [[nodiscard]] bool Has(const PipeWireTarget& target) const override {
    return Find(target) != nullptr;
  }

  [[nodiscard]] bool HasSessionManager() const override {
    return std::any_of(
        objects_.begin(), objects_.end(),
        [](const auto& object) { return object.metadataName == "default"; });
  }

  [[nodiscard]] bool IsRead(const PipeWireTarget& target) const override {
    const PipeWireObject* node = Find(target);
    if (node == nullptr) return false;
    const std::string id = std::to_string(node->id);
    return std::any_of(objects_.begin(), objects_.end(),
                       [&id](const auto& link) { return link.readNode == id; });
  }

 private:
  static void OnDone(void* data, std::uint32_t id, int sequence) {
    auto* self = static_cast<ListeningRegistry*>(data);
    if (id == PW_ID_CORE && sequence == self->expected_) {
      self->isAnswered_ = true;
    }
  }

  static void OnGlobal(void* data, std::uint32_t id, std::uint32_t, const char*,
                       std::uint32_t, const spa_dict* properties) {
    static_cast<ListeningRegistry*>(data)->objects_.push_back(
        {id, Property(properties, PW_KEY_OBJECT_SERIAL),
         Property(properties, PW_KEY_LINK_OUTPUT_NODE),
         Property(properties, "metadata.name")});
  }

  static void OnGlobalRemove(void* data, std::uint32_t id) {
    std::erase_if(static_cast<ListeningRegistry*>(data)->objects_,
                  [id](const auto& object) { return object.id == id; });
  }

  [[nodiscard]] const PipeWireObject* Find(const PipeWireTarget& target) const {
    const auto found = std::find_if(
        objects_.begin(), objects_.end(), [&target](const auto& object) {
          return target.value ==
                 (target.isSerial ? object.serial : std::to_string(object.id));
        });
    return found == objects_.end() ? nullptr : &*found;
  }

  bool WaitForAnswer() {
    constexpr auto kLongest = std::chrono::milliseconds(500);
    const auto deadline = std::chrono::steady_clock::now() + kLongest;
    while (!isAnswered_ && std::chrono::steady_clock::now() < deadline) {
      Update(50);
    }
    return isAnswered_;
  }

  const PipeWireLibrary& library_;
  pw_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  pw_core_events coreEvents_{};
  pw_registry_events registryEvents_{};
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  int expected_ = 0;
  bool isAnswered_ = false;
  std::vector<PipeWireObject> objects_;
};

}  // namespace

std::unique_ptr<PipeWireRegistry> PipeWireRegistry::Open(UniqueFd connection) {
  const PipeWireLibrary* library = LoadPipeWire();
  if (library == nullptr || !connection) return nullptr;
  auto registry = std::make_unique<ListeningRegistry>(*library);
  if (!registry->Connect(std::move(connection))) return nullptr;
  return registry;
}

}  // namespace linux_capture

#else

namespace linux_capture {

std::unique_ptr<PipeWireRegistry> PipeWireRegistry::Open(UniqueFd) {
  return nullptr;
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE
