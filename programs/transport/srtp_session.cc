#include "transport/srtp_session.h"

#include <algorithm>
#include <stdexcept>

namespace linux_capture::transport {

using programs::Bytes;

namespace {

constexpr std::size_t kSmallestPacket = 12;
constexpr std::size_t kSmallestReport = 8;
// Both libraries agree on it: far more than a burst of retransmissions.
constexpr unsigned long kReplayWindow = 1024;

}  // namespace

bool IsRtcp(Bytes packet) {
  return packet.size() >= 2 && packet[1] >= 192 && packet[1] <= 223;
}

SrtpSession::SessionPtr SrtpSession::MakeSession(bool isGcm,
                                                 std::vector<std::uint8_t> key,
                                                 srtp_ssrc_type_t direction) {
  // Once for the process; what it made lasts as long as that does.
  static const srtp_err_status_t kStart = srtp_init();
  srtp_policy_t policy{};
  if (isGcm) {
    srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtp);
    srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtcp);
  } else {
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
  }
  policy.ssrc.type = direction;
  policy.key = key.data();
  policy.window_size = kReplayWindow;
  // A retransmission has a stream and numbers of its own, but the same packet
  // may be sent again after a socket was full.
  policy.allow_repeat_tx = 1;
  srtp_t made = nullptr;
  if (kStart != srtp_err_status_ok ||
      srtp_create(&made, &policy) != srtp_err_status_ok) {
    throw std::runtime_error("SRTP cannot be used");
  }
  return SessionPtr(made);
}

SrtpSession::SrtpSession(const SrtpKeys& keys)
    : sending_(MakeSession(keys.isGcm, keys.sending, ssrc_any_outbound)),
      receiving_(MakeSession(keys.isGcm, keys.receiving, ssrc_any_inbound)) {}

bool SrtpSession::Protect(Bytes packet, std::vector<std::uint8_t>& room) {
  const bool isReport = IsRtcp(packet);
  if (packet.size() < (isReport ? kSmallestReport : kSmallestPacket)) {
    return false;
  }
  room.resize(packet.size() + SRTP_MAX_TRAILER_LEN + 4);
  std::copy(packet.begin(), packet.end(), room.begin());
  int size = static_cast<int>(packet.size());
  const srtp_err_status_t status =
      isReport ? srtp_protect_rtcp(sending_.get(), room.data(), &size)
               : srtp_protect(sending_.get(), room.data(), &size);
  room.resize(static_cast<std::size_t>(size));
  return status == srtp_err_status_ok;
}

Bytes SrtpSession::OpenReport(Bytes datagram) {
  if (!IsRtcp(datagram) || datagram.size() < kSmallestReport) return {};
  buffer_.assign(datagram.begin(), datagram.end());
  int size = static_cast<int>(datagram.size());
  if (srtp_unprotect_rtcp(receiving_.get(), buffer_.data(), &size) !=
      srtp_err_status_ok) {
    return {};
  }
  return {buffer_.data(), static_cast<std::size_t>(size)};
}

}  // namespace linux_capture::transport
