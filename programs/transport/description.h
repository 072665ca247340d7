#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_DESCRIPTION_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_DESCRIPTION_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace linux_capture::transport {

// A server of STUN or TURN. Without a user it is asked for addresses alone.
struct IceServer {
  // stun, turn or turn-tcp.
  std::string kind;
  // A literal address: names are looked up by the host.
  std::string address;
  std::uint16_t port = 0;
  std::string user;
  std::string password;
};

struct OpenRequest {
  std::vector<IceServer> servers;
  // The other side may be on this machine: its address to itself is offered
  // too.
  bool isLoopbackOffered = false;
};

// What the answer of the other side says about the way to it.
struct RemoteDescription {
  std::string user;
  std::string password;
  // As in SDP: "sha-256" and "AB:CD:...".
  std::string digestName;
  std::string digest;
  // The other side begins the handshake.
  bool isActive = false;
  // Each without its "a=".
  std::vector<std::string> candidates;
  // What was only told with the answer.
  std::vector<IceServer> relays;
};

// Lines of a key and its values, separated by single spaces. Each throws a
// ProgramError that tells the line's key, never its value, which may be secret.
OpenRequest ParseOpenRequest(std::string_view text);
RemoteDescription ParseRemoteDescription(std::string_view text);

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_DESCRIPTION_H_
