#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_LISTING_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_LISTING_H_

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "common/host.h"

namespace linux_capture::targets {

struct LoopDeleter {
  void operator()(pw_loop* loop) const noexcept { pw_loop_destroy(loop); }
};
struct ContextDeleter {
  void operator()(pw_context* context) const noexcept {
    pw_context_destroy(context);
  }
};
struct CoreDeleter {
  void operator()(pw_core* core) const noexcept { pw_core_disconnect(core); }
};
struct ProxyDeleter {
  void operator()(pw_proxy* proxy) const noexcept { pw_proxy_destroy(proxy); }
};
struct RegistryDeleter {
  void operator()(pw_registry* registry) const noexcept {
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
  }
};

using LoopPtr = std::unique_ptr<pw_loop, LoopDeleter>;
using ContextPtr = std::unique_ptr<pw_context, ContextDeleter>;
using CorePtr = std::unique_ptr<pw_core, CoreDeleter>;
using ProxyPtr = std::unique_ptr<pw_proxy, ProxyDeleter>;
using RegistryPtr = std::unique_ptr<pw_registry, RegistryDeleter>;

using Properties = std::map<std::string, std::string>;

// Whether nodes of this class are microphones and the like.
bool IsInput(std::string_view mediaClass);

// The nodes, clients and defaults of a daemon with all their properties, of
// which its registry alone tells only some.
class PipeWireListing {
 public:
  // Connects and waits until everything has been told. Throws when the daemon
  // cannot be reached or does not answer, and HostIsDone when the host is.
  explicit PipeWireListing(programs::Host& host);
  PipeWireListing(const PipeWireListing&) = delete;
  PipeWireListing& operator=(const PipeWireListing&) = delete;
  ~PipeWireListing();

  // Waits, without a limit, until the daemon tells something new, and then
  // until all of it is told. Throws as above, also when the daemon goes away.
  void WaitForChange();

  // By id.
  [[nodiscard]] const std::map<std::uint32_t, Properties>& nodes() const {
    return nodes_;
  }
  [[nodiscard]] const std::map<std::uint32_t, Properties>& clients() const {
    return clients_;
  }
  // The ids of the nodes that run.
  [[nodiscard]] const std::set<std::uint32_t>& running() const {
    return running_;
  }
  // By the id of the link, the node that it reads from.
  [[nodiscard]] const std::map<std::uint32_t, std::uint32_t>& links() const {
    return links_;
  }
  [[nodiscard]] const std::string& default_sink() const { return defaultSink_; }
  [[nodiscard]] const std::string& default_input() const {
    return defaultInput_;
  }

 private:
  // An object asked for its properties.
  struct Asked {
    Asked() = default;
    Asked(const Asked&) = delete;
    Asked& operator=(const Asked&) = delete;
    ~Asked() { spa_hook_remove(&hook); }

    PipeWireListing* listing = nullptr;
    std::uint32_t id = 0;
    ProxyPtr proxy;
    spa_hook hook{};
  };

  void WaitUntilAllIsTold();
  void WaitForAnswer(std::chrono::steady_clock::time_point deadline);
  void RunFor(std::chrono::milliseconds longest);
  template <typename Events>
  void Ask(std::uint32_t id, const char* type, std::uint32_t version,
           const Events& events);

  static void OnDone(void* data, std::uint32_t id, int sequence);
  static void OnError(void* data, std::uint32_t id, int sequence, int result,
                      const char* message);
  static void OnGlobal(void* data, std::uint32_t id, std::uint32_t permissions,
                       const char* type, std::uint32_t version,
                       const spa_dict* properties);
  static void OnGlobalRemoved(void* data, std::uint32_t id);
  static void OnNode(void* data, const pw_node_info* info);
  static void OnClient(void* data, const pw_client_info* info);
  static int OnDefault(void* data, std::uint32_t subject, const char* key,
                       const char* type, const char* value);

  programs::Host& host_;
  // Destroyed in the opposite order; the hooks outlive what calls them.
  spa_hook coreHook_{};
  spa_hook registryHook_{};
  LoopPtr loop_;
  ContextPtr context_;
  CorePtr core_;
  RegistryPtr registry_;
  // By id. The proxies have to go before the connection that they belong to.
  std::map<std::uint32_t, Asked> asked_;

  int expected_ = 0;
  bool isAnswered_ = false;
  bool isChanged_ = false;
  std::string failure_;
  std::map<std::uint32_t, Properties> nodes_;
  std::map<std::uint32_t, Properties> clients_;
  std::set<std::uint32_t> running_;
  std::map<std::uint32_t, std::uint32_t> links_;
  std::uint32_t defaults_ = 0;  // the object that tells the defaults
  std::string defaultSink_;
  std::string defaultInput_;
};

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_LISTING_H_
