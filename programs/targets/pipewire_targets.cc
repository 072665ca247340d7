#include "targets/pipewire_targets.h"

#include <algorithm>
#include <charconv>

namespace linux_capture::targets {
namespace {

std::string TextOf(const Properties& properties, const char* key) {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string() : found->second;
}

std::uint64_t NumberOf(const Properties& properties, const char* key) {
  const std::string text = TextOf(properties, key);
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::uint32_t ShortNumberOf(const Properties& properties, const char* key) {
  return static_cast<std::uint32_t>(NumberOf(properties, key));
}

// What the node does not tell, its client may.
PlayingNode PlayingNodeOf(std::uint32_t id, const Properties& node,
                          const Properties& client) {
  const auto text = [&](const char* key) {
    const std::string own = TextOf(node, key);
    return own.empty() ? TextOf(client, key) : own;
  };
  PlayingNode playing;
  playing.id = id;
  playing.serial = NumberOf(node, PW_KEY_OBJECT_SERIAL);
  playing.client = ShortNumberOf(node, PW_KEY_CLIENT_ID);
  playing.applicationName = text(PW_KEY_APP_NAME);
  playing.processBinary = text(PW_KEY_APP_PROCESS_BINARY);
  playing.nodeName = TextOf(node, PW_KEY_NODE_NAME);
  playing.mediaName = TextOf(node, PW_KEY_MEDIA_NAME);
  // The last one is what the daemon knows of the socket's other end: the
  // server of another protocol for that protocol's clients, so it comes last.
  for (const auto& [properties, key] :
       {std::pair(&node, PW_KEY_APP_PROCESS_ID),
        std::pair(&client, PW_KEY_APP_PROCESS_ID),
        std::pair(&client, PW_KEY_SEC_PID)}) {
    if (playing.processId == 0) {
      playing.processId = ShortNumberOf(*properties, key);
    }
  }
  return playing;
}

bool IsPaused(std::uint32_t id, const PipeWireListing& listing) {
  return !listing.running().contains(id) &&
         std::any_of(listing.links().begin(), listing.links().end(),
                     [id](const auto& link) { return link.second == id; });
}

Device DeviceOf(const Properties& node, const std::string& defaultName) {
  const std::string name = TextOf(node, PW_KEY_NODE_NAME);
  return {NumberOf(node, PW_KEY_OBJECT_SERIAL), name,
          TextOf(node, PW_KEY_NODE_DESCRIPTION), name == defaultName};
}

constexpr auto kIsOlder = [](const auto& a, const auto& b) {
  return a.serial < b.serial;
};

}  // namespace

PipeWireTargets TargetsOf(const PipeWireListing& listing) {
  static const Properties kNone;
  PipeWireTargets targets;
  for (const auto& [id, node] : listing.nodes()) {
    const std::string mediaClass = TextOf(node, PW_KEY_MEDIA_CLASS);
    if (mediaClass == "Audio/Sink") {
      targets.sinks.push_back(DeviceOf(node, listing.default_sink()));
    } else if (IsInput(mediaClass)) {
      targets.inputs.push_back(DeviceOf(node, listing.default_input()));
    } else {
      const auto client =
          listing.clients().find(ShortNumberOf(node, PW_KEY_CLIENT_ID));
      targets.nodes.push_back(PlayingNodeOf(
          id, node,
          client == listing.clients().end() ? kNone : client->second));
      targets.nodes.back().isPaused = IsPaused(id, listing);
    }
  }
  std::sort(targets.nodes.begin(), targets.nodes.end(), kIsOlder);
  std::sort(targets.sinks.begin(), targets.sinks.end(), kIsOlder);
  std::sort(targets.inputs.begin(), targets.inputs.end(), kIsOlder);
  return targets;
}

std::vector<std::vector<PlayingNode>> GroupByProcess(
    const std::vector<PlayingNode>& nodes) {
  std::vector<std::vector<PlayingNode>> groups;
  for (const PlayingNode& node : nodes) {
    const auto group =
        std::find_if(groups.begin(), groups.end(), [&](const auto& other) {
          const PlayingNode& first = other.front();
          return first.processId == node.processId &&
                 (node.processId != 0 || first.client == node.client);
        });
    if (group == groups.end()) {
      groups.push_back({node});
    } else {
      group->push_back(node);
    }
  }
  return groups;
}

}  // namespace linux_capture::targets
