#include "launch_boundary/pipewire_registry.h"

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

#include <pipewire/pipewire.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/c_callback.h"
#include "launch_boundary/pipewire_format.h"
#include "launch_boundary/pipewire_library.h"

namespace linux_capture {
namespace {

// PipeWire's headers call methods by macros in the manner of GNU C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
void ListenToCore(pw_core* core, spa_hook* hook, const pw_core_events* events,
                  void* data) {
  pw_core_add_listener(core, hook, events, data);
}

int SyncCore(pw_core* core) { return pw_core_sync(core, PW_ID_CORE, 0); }

pw_node* BindNode(pw_registry* registry, std::uint32_t id) {
  return static_cast<pw_node*>(pw_registry_bind(
      registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
}

void ListenToNode(pw_node* node, spa_hook* hook, const pw_node_events* events,
                  void* data) {
  pw_node_add_listener(node, hook, events, data);
}

void SubscribeToFormat(pw_node* node) {
  std::uint32_t format = SPA_PARAM_Format;
  pw_node_subscribe_params(node, &format, 1);
}

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
  bool isNode;
  std::string serial;
  std::string readNode;      // of a link: the id of the node it reads from
  std::string metadataName;  // of a metadata object
};

std::string Property(const spa_dict* properties, const char* key) {
  const char* value =
      properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
  return value == nullptr ? std::string() : std::string(value);
}

// A node whose state is listened to; its address is the listener's.
struct FollowedNode {
  std::uint32_t id = 0;
  pw_node* proxy = nullptr;
  spa_hook listener{};
  PipeWireNodeState state = PipeWireNodeState::kUnknown;
  std::optional<PipeWireVideoFormat> format{};
};

PipeWireNodeState StateFrom(pw_node_state state) {
  switch (state) {
    case PW_NODE_STATE_ERROR:
      return PipeWireNodeState::kFailed;
    case PW_NODE_STATE_RUNNING:
      return PipeWireNodeState::kRunning;
    default:
      return PipeWireNodeState::kResting;
  }
}

class ListeningRegistry final : public PipeWireRegistry {
 public:
  explicit ListeningRegistry(const PipeWireLibrary& library)
      : library_(library) {}
  ListeningRegistry(const ListeningRegistry&) = delete;
  ListeningRegistry& operator=(const ListeningRegistry&) = delete;
  ~ListeningRegistry() override {
    for (const auto& node : followed_) {
      library_.proxyDestroy(reinterpret_cast<pw_proxy*>(node->proxy));
    }
    if (registry_ != nullptr) {
      library_.proxyDestroy(reinterpret_cast<pw_proxy*>(registry_));
    }
    if (core_ != nullptr) library_.coreDisconnect(core_);
    if (context_ != nullptr) library_.contextDestroy(context_);
    if (loop_ != nullptr) library_.loopDestroy(loop_);
  }

  PipeWireAnswer Connect(UniqueFd connection) {
    loop_ = library_.loopNew(nullptr);
    if (loop_ == nullptr) return PipeWireAnswer::kNotAsked;
    context_ = library_.contextNew(loop_, nullptr, 0);
    if (context_ == nullptr) return PipeWireAnswer::kNotAsked;
    // The descriptor belongs to the connection from here on.
    core_ =
        library_.contextConnectFd(context_, connection.release(), nullptr, 0);
    if (core_ == nullptr) return PipeWireAnswer::kNotAsked;
    coreEvents_.version = PW_VERSION_CORE_EVENTS;
    coreEvents_.done = NoThrow<&ListeningRegistry::OnDone>;
    ListenToCore(core_, &coreListener_, &coreEvents_, this);
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    if (registry_ == nullptr) return PipeWireAnswer::kNotAsked;
    registryEvents_.version = PW_VERSION_REGISTRY_EVENTS;
    registryEvents_.global = NoThrow<&ListeningRegistry::OnGlobal>;
    registryEvents_.global_remove = NoThrow<&ListeningRegistry::OnGlobalRemove>;
    ListenToRegistry(registry_, &registryListener_, &registryEvents_, this);
    nodeEvents_.version = PW_VERSION_NODE_EVENTS;
    nodeEvents_.info = NoThrow<&ListeningRegistry::OnNodeInfo>;
    nodeEvents_.param = NoThrow<&ListeningRegistry::OnNodeParam>;
    Ask();
    return WaitForAnswer() ? PipeWireAnswer::kAnswered
                           : PipeWireAnswer::kSilent;
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

  [[nodiscard]] std::size_t ReadersOf(
      const PipeWireTarget& target) const override {
    const PipeWireObject* node = Find(target);
    if (node == nullptr) return 0;
    const std::string id = std::to_string(node->id);
    return static_cast<std::size_t>(
        std::count_if(objects_.begin(), objects_.end(),
                      [&id](const auto& link) { return link.readNode == id; }));
  }

  void Follow(const PipeWireTarget& target) override {
    const PipeWireObject* object = Find(target);
    if (object == nullptr || !object->isNode ||
        FindFollowed(object->id) != nullptr) {
      return;
    }
    auto node = std::make_unique<FollowedNode>();
    node->id = object->id;
    node->proxy = BindNode(registry_, object->id);
    if (node->proxy == nullptr) return;
    ListenToNode(node->proxy, &node->listener, &nodeEvents_, node.get());
    SubscribeToFormat(node->proxy);
    followed_.push_back(std::move(node));
  }

  [[nodiscard]] PipeWireNodeState StateOf(
      const PipeWireTarget& target) const override {
    const FollowedNode* node = FindFollowed(target);
    return node == nullptr ? PipeWireNodeState::kUnknown : node->state;
  }

  [[nodiscard]] std::optional<PipeWireVideoFormat> FormatOf(
      const PipeWireTarget& target) const override {
    const FollowedNode* node = FindFollowed(target);
    return node == nullptr ? std::nullopt : node->format;
  }

  void Ask() override {
    if (askedAt_) return;
    askedAt_ = std::chrono::steady_clock::now();
    expected_ = SyncCore(core_);
  }

  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point>
  OpenQuestion() const override {
    return askedAt_;
  }

 private:
  static void OnDone(void* data, std::uint32_t id, int sequence) {
    auto* self = static_cast<ListeningRegistry*>(data);
    if (id == PW_ID_CORE && sequence == self->expected_) {
      self->askedAt_.reset();
    }
  }

  static void OnNodeInfo(void* data, const pw_node_info* info) {
    static_cast<FollowedNode*>(data)->state = StateFrom(info->state);
  }

  static void OnNodeParam(void* data, int, std::uint32_t id, std::uint32_t,
                          std::uint32_t, const spa_pod* param) {
    if (id != SPA_PARAM_Format) return;
    static_cast<FollowedNode*>(data)->format = ReadVideoFormat(param);
  }

  static void OnGlobal(void* data, std::uint32_t id, std::uint32_t,
                       const char* type, std::uint32_t,
                       const spa_dict* properties) {
    static_cast<ListeningRegistry*>(data)->objects_.push_back(
        {id, std::string_view(type) == PW_TYPE_INTERFACE_Node,
         Property(properties, PW_KEY_OBJECT_SERIAL),
         Property(properties, PW_KEY_LINK_OUTPUT_NODE),
         Property(properties, "metadata.name")});
  }

  static void OnGlobalRemove(void* data, std::uint32_t id) {
    auto* self = static_cast<ListeningRegistry*>(data);
    std::erase_if(self->objects_,
                  [id](const auto& object) { return object.id == id; });
    std::erase_if(self->followed_, [&](const auto& node) {
      if (node->id != id) return false;
      self->library_.proxyDestroy(reinterpret_cast<pw_proxy*>(node->proxy));
      return true;
    });
  }

  [[nodiscard]] const FollowedNode* FindFollowed(std::uint32_t id) const {
    const auto found =
        std::find_if(followed_.begin(), followed_.end(),
                     [id](const auto& node) { return node->id == id; });
    return found == followed_.end() ? nullptr : found->get();
  }

  [[nodiscard]] const FollowedNode* FindFollowed(
      const PipeWireTarget& target) const {
    const PipeWireObject* object = Find(target);
    return object == nullptr ? nullptr : FindFollowed(object->id);
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
    constexpr auto kLongest = std::chrono::seconds(1);
    const auto deadline = std::chrono::steady_clock::now() + kLongest;
    while (askedAt_ && std::chrono::steady_clock::now() < deadline) {
      Update(50);
    }
    return !askedAt_;
  }

  const PipeWireLibrary& library_;
  pw_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  pw_core_events coreEvents_{};
  pw_registry_events registryEvents_{};
  pw_node_events nodeEvents_{};
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  int expected_ = 0;
  std::optional<std::chrono::steady_clock::time_point> askedAt_;
  std::vector<PipeWireObject> objects_;
  std::vector<std::unique_ptr<FollowedNode>> followed_;
};

}  // namespace

std::unique_ptr<PipeWireRegistry> PipeWireRegistry::Open(
    UniqueFd connection, PipeWireAnswer& answer) {
  answer = PipeWireAnswer::kNotAsked;
  const PipeWireLibrary* library = LoadPipeWire();
  if (library == nullptr || !connection) return nullptr;
  auto registry = std::make_unique<ListeningRegistry>(*library);
  answer = registry->Connect(std::move(connection));
  if (answer != PipeWireAnswer::kAnswered) return nullptr;
  return registry;
}

}  // namespace linux_capture

#else

namespace linux_capture {

std::unique_ptr<PipeWireRegistry> PipeWireRegistry::Open(
    UniqueFd, PipeWireAnswer& answer) {
  answer = PipeWireAnswer::kNotAsked;
  return nullptr;
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE
