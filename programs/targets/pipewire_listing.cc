#include "targets/pipewire_listing.h"

#include <spa/utils/json.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/c_callback.h"

namespace linux_capture::targets {
namespace {

using Clock = std::chrono::steady_clock;
// A daemon answers at once; this is for one on a machine that is very busy.
constexpr std::chrono::seconds kLongestWait{5};

Properties CopyOf(const spa_dict* dictionary) {
  Properties properties;
  if (dictionary == nullptr) return properties;
  for (std::uint32_t i = 0; i < dictionary->n_items; ++i) {
    const spa_dict_item& item = dictionary->items[i];
    if (item.key != nullptr && item.value != nullptr) {
      properties[item.key] = item.value;
    }
  }
  return properties;
}

std::string Lookup(const spa_dict* dictionary, const char* key) {
  const char* value =
      dictionary == nullptr ? nullptr : spa_dict_lookup(dictionary, key);
  return value == nullptr ? std::string() : std::string(value);
}

std::uint32_t ShortNumberOf(const spa_dict* dictionary, const char* key) {
  const std::string text = Lookup(dictionary, key);
  std::uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The name in {"name":"..."}.
std::string NameInJson(const char* text) {
  spa_json outer{};
  spa_json inner{};
  spa_json_init(&outer, text, std::strlen(text));
  if (spa_json_enter_object(&outer, &inner) <= 0) return {};
  std::array<char, 64> key{};
  std::array<char, 1024> value{};
  while (spa_json_get_string(&inner, key.data(), key.size()) > 0) {
    if (std::string_view(key.data()) == "name") {
      return spa_json_get_string(&inner, value.data(), value.size()) > 0
                 ? std::string(value.data())
                 : std::string();
    }
    const char* skipped = nullptr;
    if (spa_json_next(&inner, &skipped) <= 0) break;
  }
  return {};
}

// PipeWire's headers call methods by macros in the manner of GNU C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
void Listen(pw_core* core, spa_hook* hook, const pw_core_events* events,
            void* data) {
  pw_core_add_listener(core, hook, events, data);
}

void Listen(pw_registry* registry, spa_hook* hook,
            const pw_registry_events* events, void* data) {
  pw_registry_add_listener(registry, hook, events, data);
}

int Sync(pw_core* core) { return pw_core_sync(core, PW_ID_CORE, 0); }

pw_proxy* Bind(pw_registry* registry, std::uint32_t id, const char* type,
               std::uint32_t version) {
  return static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, type, version, 0));
}

int FdOf(pw_loop* loop) { return pw_loop_get_fd(loop); }

void RunLoopOnce(pw_loop* loop) {
  pw_loop_enter(loop);
  pw_loop_iterate(loop, 0);
  pw_loop_leave(loop);
}
#pragma GCC diagnostic pop

template <typename Pointer>
const Pointer& Require(const Pointer& pointer, const char* what) {
  if (!pointer) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  }
  return pointer;
}

}  // namespace

bool IsInput(std::string_view mediaClass) {
  return mediaClass == "Audio/Source" || mediaClass == "Audio/Source/Virtual" ||
         mediaClass == "Audio/Duplex";
}

PipeWireListing::PipeWireListing(programs::Host& host)
    : host_(host), loop_(pw_loop_new(nullptr)) {
  static const pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = NoThrow<&PipeWireListing::OnDone>;
    events.error = NoThrow<&PipeWireListing::OnError>;
    return events;
  }();
  static const pw_registry_events kRegistryEvents = [] {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = NoThrow<&PipeWireListing::OnGlobal>;
    events.global_remove = NoThrow<&PipeWireListing::OnGlobalRemoved>;
    return events;
  }();

  Require(loop_, "PipeWire cannot be used");
  context_.reset(pw_context_new(loop_.get(), nullptr, 0));
  Require(context_, "PipeWire cannot be used");
  core_.reset(pw_context_connect(context_.get(), nullptr, 0));
  Require(core_, "the PipeWire daemon cannot be reached");
  Listen(core_.get(), &coreHook_, &kCoreEvents, this);
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  Require(registry_, "the PipeWire daemon tells nothing");
  Listen(registry_.get(), &registryHook_, &kRegistryEvents, this);
  WaitUntilAllIsTold();
}

PipeWireListing::~PipeWireListing() {
  spa_hook_remove(&registryHook_);
  spa_hook_remove(&coreHook_);
}

void PipeWireListing::WaitForChange() {
  isChanged_ = false;
  while (!isChanged_) {
    if (!failure_.empty()) throw std::runtime_error(failure_);
    RunFor(std::chrono::hours(1));
  }
  WaitUntilAllIsTold();
}

// The first answer comes behind all objects, the second behind what these were
// asked for meanwhile.
void PipeWireListing::WaitUntilAllIsTold() {
  const Clock::time_point deadline = Clock::now() + kLongestWait;
  WaitForAnswer(deadline);
  WaitForAnswer(deadline);
}

void PipeWireListing::WaitForAnswer(Clock::time_point deadline) {
  isAnswered_ = false;
  expected_ = Sync(core_.get());
  while (!isAnswered_) {
    if (!failure_.empty()) throw std::runtime_error(failure_);
    if (Clock::now() >= deadline) {
      throw std::runtime_error("the PipeWire daemon does not answer (waited " +
                               std::to_string(kLongestWait.count()) +
                               " seconds)");
    }
    RunFor(std::chrono::milliseconds(100));
  }
}

void PipeWireListing::RunFor(std::chrono::milliseconds longest) {
  if (host_.WaitFor(FdOf(loop_.get()), longest)) RunLoopOnce(loop_.get());
}

template <typename Events>
void PipeWireListing::Ask(std::uint32_t id, const char* type,
                          std::uint32_t version, const Events& events) {
  ProxyPtr proxy(Bind(registry_.get(), id, type, version));
  if (!proxy) return;
  // A number that is used again without its end having been told.
  asked_.erase(id);
  Asked& asked = asked_[id];
  asked.listing = this;
  asked.id = id;
  asked.proxy = std::move(proxy);
  pw_proxy_add_object_listener(asked.proxy.get(), &asked.hook, &events, &asked);
}

void PipeWireListing::OnDone(void* data, std::uint32_t id, int sequence) {
  auto& listing = *static_cast<PipeWireListing*>(data);
  if (id == PW_ID_CORE && sequence == listing.expected_) {
    listing.isAnswered_ = true;
  }
}

void PipeWireListing::OnError(void* data, std::uint32_t id, int, int result,
                              const char* message) {
  // Objects go away while they are asked for, which is an error of their own
  // or one of the kind "unknown resource".
  if (id != PW_ID_CORE || result == -ENOENT || result == -EINVAL) return;
  static_cast<PipeWireListing*>(data)->failure_ =
      result == -EPIPE ? std::string("the PipeWire daemon went away")
                       : std::string("the PipeWire daemon failed: ") + message;
}

void PipeWireListing::OnGlobal(void* data, std::uint32_t id, std::uint32_t,
                               const char* type, std::uint32_t,
                               const spa_dict* properties) {
  static const pw_node_events kNodeEvents = [] {
    pw_node_events events{};
    events.version = PW_VERSION_NODE_EVENTS;
    events.info = NoThrow<&PipeWireListing::OnNode>;
    return events;
  }();
  static const pw_client_events kClientEvents = [] {
    pw_client_events events{};
    events.version = PW_VERSION_CLIENT_EVENTS;
    events.info = NoThrow<&PipeWireListing::OnClient>;
    return events;
  }();
  static const pw_metadata_events kMetadataEvents = [] {
    pw_metadata_events events{};
    events.version = PW_VERSION_METADATA_EVENTS;
    events.property = NoThrow<&PipeWireListing::OnDefault>;
    return events;
  }();
  auto& listing = *static_cast<PipeWireListing*>(data);
  const std::string_view kind = type;
  if (kind == PW_TYPE_INTERFACE_Node) {
    const std::string mediaClass = Lookup(properties, PW_KEY_MEDIA_CLASS);
    if (mediaClass == "Stream/Output/Audio" || mediaClass == "Audio/Sink" ||
        IsInput(mediaClass)) {
      listing.Ask(id, type, PW_VERSION_NODE, kNodeEvents);
    }
  } else if (kind == PW_TYPE_INTERFACE_Link) {
    listing.links_[id] = ShortNumberOf(properties, PW_KEY_LINK_OUTPUT_NODE);
    listing.isChanged_ = true;
  } else if (kind == PW_TYPE_INTERFACE_Client) {
    listing.Ask(id, type, PW_VERSION_CLIENT, kClientEvents);
  } else if (kind == PW_TYPE_INTERFACE_Metadata &&
             Lookup(properties, "metadata.name") == "default") {
    listing.defaults_ = id;
    listing.Ask(id, type, PW_VERSION_METADATA, kMetadataEvents);
  }
}

void PipeWireListing::OnGlobalRemoved(void* data, std::uint32_t id) {
  auto& listing = *static_cast<PipeWireListing*>(data);
  if (listing.links_.erase(id) == 0 && listing.asked_.erase(id) == 0) return;
  listing.nodes_.erase(id);
  listing.running_.erase(id);
  listing.clients_.erase(id);
  if (listing.defaults_ == id) {
    listing.defaultSink_.clear();
    listing.defaultInput_.clear();
  }
  listing.isChanged_ = true;
}

// What has not changed is not told again, as if there were none of it.
void PipeWireListing::OnNode(void* data, const pw_node_info* info) {
  const auto& asked = *static_cast<Asked*>(data);
  PipeWireListing& listing = *asked.listing;
  if ((info->change_mask & PW_NODE_CHANGE_MASK_STATE) != 0) {
    if (info->state == PW_NODE_STATE_RUNNING) {
      listing.running_.insert(asked.id);
    } else {
      listing.running_.erase(asked.id);
    }
    listing.isChanged_ = true;
  }
  if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0) {
    listing.nodes_[asked.id] = CopyOf(info->props);
    listing.isChanged_ = true;
  }
}

void PipeWireListing::OnClient(void* data, const pw_client_info* info) {
  if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
  const auto& asked = *static_cast<Asked*>(data);
  asked.listing->clients_[asked.id] = CopyOf(info->props);
  asked.listing->isChanged_ = true;
}

int PipeWireListing::OnDefault(void* data, std::uint32_t, const char* key,
                               const char*, const char* value) {
  const auto& asked = *static_cast<Asked*>(data);
  PipeWireListing& listing = *asked.listing;
  for (const auto& [name, known] :
       {std::pair("default.audio.sink", &listing.defaultSink_),
        std::pair("default.audio.source", &listing.defaultInput_)}) {
    // Without a key everything was taken back.
    if (key != nullptr && std::string_view(key) != name) continue;
    *known =
        key == nullptr || value == nullptr ? std::string() : NameInJson(value);
    listing.isChanged_ = true;
  }
  return 0;
}

}  // namespace linux_capture::targets
