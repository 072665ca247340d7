#include "transport/ice_agent.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "base/glib_callback.h"

namespace linux_capture::transport {

using programs::Bytes;

namespace {

// RTP and RTCP share it.
constexpr guint kComponent = NICE_COMPONENT_TYPE_RTP;
constexpr std::size_t kMostTogether = 64;

struct AddressDeleter {
  void operator()(NiceAddress* address) const noexcept {
    nice_address_free(address);
  }
};
using AddressPtr = std::unique_ptr<NiceAddress, AddressDeleter>;

struct CandidateDeleter {
  void operator()(NiceCandidate* candidate) const noexcept {
    nice_candidate_free(candidate);
  }
};
using CandidatePtr = std::unique_ptr<NiceCandidate, CandidateDeleter>;

struct CandidateListDeleter {
  void operator()(GSList* list) const noexcept {
    g_slist_free_full(list,
                      reinterpret_cast<GDestroyNotify>(&nice_candidate_free));
  }
};
using CandidateList = std::unique_ptr<GSList, CandidateListDeleter>;

struct AddressTextsDeleter {
  void operator()(GList* list) const noexcept {
    g_list_free_full(list, &g_free);
  }
};
using AddressTexts = std::unique_ptr<GList, AddressTextsDeleter>;

AddressPtr AddressOf(const char* text) {
  AddressPtr address(nice_address_new());
  if (nice_address_set_from_string(address.get(), text) == FALSE) return {};
  return address;
}

bool IsLinkLocal(const NiceAddress& address) {
  std::array<gchar, NICE_ADDRESS_STRING_LEN> text{};
  nice_address_to_string(&address, text.data());
  const std::string_view shown(text.data());
  return shown.starts_with("169.254.") || shown.starts_with("fe8") ||
         shown.starts_with("fe9") || shown.starts_with("fea") ||
         shown.starts_with("feb");
}

// The addresses of this machine, with that to itself where it is asked for or
// where there is no other.
void OfferAddresses(NiceAgent* agent, bool isLoopbackOffered) {
  const AddressTexts outer(nice_interfaces_get_local_ips(FALSE));
  if (outer && !isLoopbackOffered) return;
  const AddressTexts all(nice_interfaces_get_local_ips(TRUE));
  for (const GList* entry = all.get(); entry != nullptr; entry = entry->next) {
    const AddressPtr address = AddressOf(static_cast<const char*>(entry->data));
    if (address) nice_agent_add_local_address(agent, address.get());
  }
}

}  // namespace

IceAgent::IceAgent(const OpenRequest& request, IceEvents events)
    : events_(std::move(events)),
      // Consent is asked for all the time: else a network that has gone would
      // never be noticed.
      agent_(nice_agent_new_full(
          nullptr, NICE_COMPATIBILITY_RFC5245,
          static_cast<NiceAgentOption>(NICE_AGENT_OPTION_REGULAR_NOMINATION |
                                       NICE_AGENT_OPTION_CONSENT_FRESHNESS))) {
  if (!agent_) throw std::runtime_error("ICE cannot be used");
  g_object_set(agent_.get(), "controlling-mode", TRUE, "ice-tcp", FALSE, "upnp",
               FALSE, "keepalive-conncheck", TRUE, nullptr);
  OfferAddresses(agent_.get(), request.isLoopbackOffered);
  stream_ = nice_agent_add_stream(agent_.get(), 1);
  if (stream_ == 0) throw std::runtime_error("ICE cannot be used");
  for (const IceServer& server : request.servers) AddServer(server);
  ConnectSignal<&IceAgent::OnGathered>(agent_.get(), "candidate-gathering-done",
                                       this);
  ConnectSignal<&IceAgent::OnStateChanged>(agent_.get(),
                                           "component-state-changed", this);
  nice_agent_attach_recv(agent_.get(), stream_, kComponent, nullptr,
                         NoThrow<&IceAgent::OnDatagram>, this);
}

IceAgent::~IceAgent() {
  g_signal_handlers_disconnect_by_data(agent_.get(), this);
  nice_agent_attach_recv(agent_.get(), stream_, kComponent, nullptr, nullptr,
                         nullptr);
  nice_agent_remove_stream(agent_.get(), stream_);
}

void IceAgent::AddServer(const IceServer& server) {
  if (server.kind == "stun") {
    g_object_set(agent_.get(), "stun-server", server.address.c_str(),
                 "stun-server-port", guint{server.port}, nullptr);
    return;
  }
  const NiceRelayType type = server.kind == "turn-tcp"
                                 ? NICE_RELAY_TYPE_TURN_TCP
                                 : NICE_RELAY_TYPE_TURN_UDP;
  nice_agent_set_relay_info(agent_.get(), stream_, kComponent,
                            server.address.c_str(), server.port,
                            server.user.c_str(), server.password.c_str(), type);
}

void IceAgent::Gather() {
  if (nice_agent_gather_candidates(agent_.get(), stream_) == FALSE) {
    throw std::runtime_error("no address of this machine can be used");
  }
}

LocalDescription IceAgent::local() const {
  LocalDescription description;
  gchar* user = nullptr;
  gchar* password = nullptr;
  if (nice_agent_get_local_credentials(agent_.get(), stream_, &user,
                                       &password) == FALSE) {
    throw std::runtime_error("ICE cannot be used");
  }
  const GCharPtr userOwner(user);
  const GCharPtr passwordOwner(password);
  description.user = user;
  description.password = password;
  const CandidateList candidates(
      nice_agent_get_local_candidates(agent_.get(), stream_, kComponent));
  for (const GSList* entry = candidates.get(); entry != nullptr;
       entry = entry->next) {
    auto* const candidate = static_cast<NiceCandidate*>(entry->data);
    // These reach nothing beyond the next cable.
    if (IsLinkLocal(candidate->addr)) continue;
    const GCharPtr text(
        nice_agent_generate_local_candidate_sdp(agent_.get(), candidate));
    std::string line = text.get();
    description.candidates.push_back(line.starts_with("a=") ? line.substr(2)
                                                            : line);
  }
  return description;
}

void IceAgent::Connect(const RemoteDescription& remote) {
  // Their addresses are no part of the offer any more: the other side meets
  // them when something comes from there.
  for (const IceServer& relay : remote.relays) AddServer(relay);
  nice_agent_set_remote_credentials(agent_.get(), stream_, remote.user.c_str(),
                                    remote.password.c_str());
  GSList* parsed = nullptr;
  for (const std::string& line : remote.candidates) {
    NiceCandidate* const candidate = nice_agent_parse_remote_candidate_sdp(
        agent_.get(), stream_, ("a=" + line).c_str());
    // Names of multicast DNS and other transports are for others.
    if (candidate == nullptr) continue;
    candidate->component_id = kComponent;
    parsed = g_slist_prepend(parsed, candidate);
  }
  const CandidateList candidates(g_slist_reverse(parsed));
  if (!candidates ||
      nice_agent_set_remote_candidates(agent_.get(), stream_, kComponent,
                                       candidates.get()) <= 0) {
    throw std::runtime_error(
        "the answer of the other side names no address that can be used");
  }
}

void IceAgent::Send(std::span<const Bytes> datagrams) {
  if (!isReady_ || SendDirectly(datagrams)) return;
  for (const Bytes datagram : datagrams) {
    nice_agent_send(agent_.get(), stream_, kComponent,
                    static_cast<guint>(datagram.size()),
                    reinterpret_cast<const gchar*>(datagram.data()));
  }
}

bool IceAgent::SendDirectly(std::span<const Bytes> datagrams) {
  const GObjectPtr<GSocket> socket(
      nice_agent_get_selected_socket(agent_.get(), stream_, kComponent));
  NiceCandidate* local = nullptr;
  NiceCandidate* remote = nullptr;
  if (!socket || nice_agent_get_selected_pair(agent_.get(), stream_, kComponent,
                                              &local, &remote) == 0) {
    return false;
  }
  sockaddr_storage address{};
  nice_address_copy_to_sockaddr(&remote->addr,
                                reinterpret_cast<sockaddr*>(&address));
  const socklen_t addressSize = address.ss_family == AF_INET6
                                    ? sizeof(sockaddr_in6)
                                    : sizeof(sockaddr_in);
  std::array<iovec, kMostTogether> parts{};
  std::array<mmsghdr, kMostTogether> messages{};
  while (!datagrams.empty()) {
    const std::size_t count = std::min(datagrams.size(), kMostTogether);
    for (std::size_t index = 0; index < count; ++index) {
      const Bytes datagram = datagrams[index];
      // The system only reads it.
      parts[index] = {const_cast<std::uint8_t*>(datagram.data()),
                      datagram.size()};
      messages[index] = {};
      messages[index].msg_hdr.msg_name = &address;
      messages[index].msg_hdr.msg_namelen = addressSize;
      messages[index].msg_hdr.msg_iov = &parts[index];
      messages[index].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(g_socket_get_fd(socket.get()), messages.data(),
                              static_cast<unsigned int>(count), MSG_DONTWAIT);
    // The one that could not go is left out; those behind it may.
    datagrams = datagrams.subspan(
        std::min(count, static_cast<std::size_t>(std::max(sent, 0)) +
                            (sent < static_cast<int>(count) ? 1U : 0U)));
  }
  return true;
}

void IceAgent::OnGathered(NiceAgent* /*agent*/, guint /*stream*/,
                          gpointer self) {
  static_cast<IceAgent*>(self)->events_.gathered();
}

void IceAgent::OnStateChanged(NiceAgent* /*agent*/, guint /*stream*/,
                              guint /*component*/, guint state, gpointer self) {
  auto& agent = *static_cast<IceAgent*>(self);
  if (state == NICE_COMPONENT_STATE_READY) {
    const bool wasReady = agent.isReady_;
    agent.isReady_ = true;
    if (!wasReady) agent.events_.ready();
  } else if (state == NICE_COMPONENT_STATE_FAILED) {
    // Nobody may be sent to who does not consent any more.
    agent.isReady_ = false;
    agent.events_.failed();
  }
}

void IceAgent::OnDatagram(NiceAgent* /*agent*/, guint /*stream*/,
                          guint /*component*/, guint size, gchar* bytes,
                          gpointer self) {
  static_cast<IceAgent*>(self)->events_.arrived(
      {reinterpret_cast<const std::uint8_t*>(bytes), size});
}

}  // namespace linux_capture::transport
