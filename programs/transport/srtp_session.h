#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_SRTP_SESSION_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_SRTP_SESSION_H_

#include <srtp2/srtp.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

#include "common/frames.h"
#include "transport/dtls_session.h"

namespace linux_capture::transport {

// Whether a datagram that begins so is a report and not a packet of media.
bool IsRtcp(programs::Bytes packet);

// Protects what is sent and opens the reports that arrive. Of one thread.
class SrtpSession {
 public:
  explicit SrtpSession(const SrtpKeys& keys);

  // Writes the packet as it goes over the network into `room`; returns false
  // for what is no packet.
  bool Protect(programs::Bytes packet, std::vector<std::uint8_t>& room);
  // Valid until the next call. Empty for a report that is forged, damaged or
  // was here before.
  programs::Bytes OpenReport(programs::Bytes datagram);

 private:
  struct Deleter {
    void operator()(srtp_t session) const noexcept { srtp_dealloc(session); }
  };
  using SessionPtr = std::unique_ptr<std::remove_pointer_t<srtp_t>, Deleter>;

  static SessionPtr MakeSession(bool isGcm, std::vector<std::uint8_t> key,
                                srtp_ssrc_type_t direction);

  SessionPtr sending_;
  SessionPtr receiving_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_SRTP_SESSION_H_
