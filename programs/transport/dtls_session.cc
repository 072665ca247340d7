#include "transport/dtls_session.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/srtp.h>
#include <sys/time.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "base/c_callback.h"

namespace linux_capture::transport {

using programs::Bytes;

namespace {

// What every network carries, with room for the headers of a tunnel.
constexpr long kDatagramSize = 1200;

// The first repeat. A second, as is usual, would be added to each connection
// whose first message came before the other side was ready.
constexpr unsigned int kFirstRepeatUs = 100'000;
constexpr unsigned int kLongestRepeatUs = 2'000'000;

// In the order of preference.
constexpr const char* kProfiles =
    "SRTP_AEAD_AES_128_GCM:SRTP_AES128_CM_SHA1_80";

constexpr std::size_t kKeySize = 16;

unsigned int NextRepeat(SSL* /*ssl*/, unsigned int lastUs) {
  return lastUs == 0 ? kFirstRepeatUs : std::min(lastUs * 2, kLongestRepeatUs);
}

bool EqualsIgnoringCase(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](unsigned char a, unsigned char b) {
                      return std::toupper(a) == std::toupper(b);
                    });
}

}  // namespace

int DtlsSession::VerifyCertificate(X509_STORE_CTX* store, void* session) {
  auto& self = *static_cast<DtlsSession*>(session);
  const X509* const certificate = X509_STORE_CTX_get0_cert(store);
  const std::string found = certificate == nullptr
                                ? ""
                                : FingerprintOf(*certificate, self.digestName_);
  const bool isRight =
      !found.empty() && EqualsIgnoringCase(found, self.digest_);
  self.isFingerprintWrong_ = !isRight;
  if (!isRight) {
    X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
  }
  return isRight ? 1 : 0;
}

int DtlsSession::WriteDatagram(BIO* bio, const char* data, int size) {
  auto& self = *static_cast<DtlsSession*>(BIO_get_data(bio));
  self.send_({reinterpret_cast<const std::uint8_t*>(data),
              static_cast<std::size_t>(size)});
  return size;
}

int DtlsSession::ReadDatagram(BIO* bio, char* data, int size) {
  auto& self = *static_cast<DtlsSession*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  if (self.arrived_.empty()) {
    BIO_set_retry_read(bio);
    return -1;
  }
  const std::size_t count =
      std::min(self.arrived_.size(), static_cast<std::size_t>(size));
  std::memcpy(data, self.arrived_.data(), count);
  self.arrived_ = {};
  return static_cast<int>(count);
}

long DtlsSession::ControlDatagrams(BIO* /*bio*/, int command, long /*number*/,
                                   void* /*data*/) {
  switch (command) {
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_CTRL_DGRAM_GET_FALLBACK_MTU:
    case BIO_CTRL_DGRAM_QUERY_MTU:
      return kDatagramSize;
    default:
      return 0;
  }
}

DtlsSession::DtlsSession(const Certificate& own, std::string digestName,
                         std::string digest, bool isServer, Send send)
    : digestName_(std::move(digestName)),
      digest_(std::move(digest)),
      isServer_(isServer),
      send_(std::move(send)),
      method_(BIO_meth_new(BIO_TYPE_SOURCE_SINK | BIO_get_new_index(),
                           "datagrams")),
      context_(SSL_CTX_new(DTLS_method())) {
  if (!method_ || !context_) ThrowOpenSslError("DTLS cannot be used");
  BIO_meth_set_write(method_.get(), NoThrow<&DtlsSession::WriteDatagram>);
  BIO_meth_set_read(method_.get(), NoThrow<&DtlsSession::ReadDatagram>);
  BIO_meth_set_ctrl(method_.get(), NoThrow<&DtlsSession::ControlDatagrams>);
  SSL_CTX* const context = context_.get();
  SSL_CTX_set_min_proto_version(context, DTLS1_2_VERSION);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                     nullptr);
  SSL_CTX_set_cert_verify_callback(
      context, NoThrow<&DtlsSession::VerifyCertificate>, this);
  SSL_CTX_set_options(context, SSL_OP_NO_QUERY_MTU);
  // Zero is its word for success.
  if (SSL_CTX_use_certificate(context, own.certificate.get()) != 1 ||
      SSL_CTX_use_PrivateKey(context, own.key.get()) != 1 ||
      SSL_CTX_set_tlsext_use_srtp(context, kProfiles) != 0) {
    ThrowOpenSslError("DTLS cannot be used");
  }
  ssl_.reset(SSL_new(context));
  BIO* const bio = BIO_new(method_.get());
  if (!ssl_ || bio == nullptr) ThrowOpenSslError("DTLS cannot be used");
  BIO_set_data(bio, this);
  BIO_set_init(bio, 1);
  // The one owner of the BIO from now on.
  SSL_set_bio(ssl_.get(), bio, bio);
  SSL_set_mtu(ssl_.get(), kDatagramSize);
  DTLS_set_timer_cb(ssl_.get(), NoThrow<&NextRepeat>);
  if (isServer_) {
    SSL_set_accept_state(ssl_.get());
  } else {
    SSL_set_connect_state(ssl_.get());
  }
}

void DtlsSession::Start() { Advance(); }

void DtlsSession::Take(Bytes datagram) {
  arrived_ = datagram;
  Advance();
  arrived_ = {};
}

void DtlsSession::TimerRan() {
  if (keys_) return;
  if (DTLSv1_handle_timeout(ssl_.get()) < 0) {
    throw std::runtime_error("the other side does not answer the handshake");
  }
}

std::optional<std::chrono::milliseconds> DtlsSession::next_timer() const {
  timeval left{};
  if (keys_ || DTLSv1_get_timeout(ssl_.get(), &left) != 1) return std::nullopt;
  // Up, or the timer runs before the time has come.
  return std::chrono::seconds(left.tv_sec) +
         std::chrono::milliseconds((left.tv_usec + 999) / 1000);
}

void DtlsSession::Advance() {
  ERR_clear_error();
  std::uint8_t ignored[64];
  const int result = keys_ ? SSL_read(ssl_.get(), ignored, sizeof(ignored))
                           : SSL_do_handshake(ssl_.get());
  if (result == 1 && !keys_) {
    ExportKeys();
    return;
  }
  if (result > 0) return;
  switch (SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
    case SSL_ERROR_WANT_WRITE:
      return;
    case SSL_ERROR_ZERO_RETURN:
      isClosed_ = true;
      return;
    default:
      // Once the keys are there, what does not fit is a stray datagram.
      if (keys_) return;
      if (isFingerprintWrong_) {
        throw std::runtime_error(
            "the certificate of the other side is not the one of its answer");
      }
      ThrowOpenSslError("the handshake with the other side failed");
  }
}

void DtlsSession::ExportKeys() {
  const SRTP_PROTECTION_PROFILE* const profile =
      SSL_get_selected_srtp_profile(ssl_.get());
  if (profile == nullptr) {
    throw std::runtime_error("the other side agreed to no profile of SRTP");
  }
  const bool isGcm = profile->id == SRTP_AEAD_AES_128_GCM;
  const std::size_t saltSize = isGcm ? 12 : 14;
  std::vector<std::uint8_t> material(2 * (kKeySize + saltSize));
  constexpr std::string_view kLabel = "EXTRACTOR-dtls_srtp";
  if (SSL_export_keying_material(ssl_.get(), material.data(), material.size(),
                                 kLabel.data(), kLabel.size(), nullptr, 0,
                                 0) != 1) {
    ThrowOpenSslError("the handshake gave no keys");
  }
  // The keys of client and server, then their salts.
  const auto keysOf = [&](std::size_t side) {
    const auto key =
        material.begin() + static_cast<std::ptrdiff_t>(side * kKeySize);
    const auto salt = material.begin() + static_cast<std::ptrdiff_t>(
                                             2 * kKeySize + side * saltSize);
    std::vector<std::uint8_t> both(key, key + kKeySize);
    both.insert(both.end(), salt, salt + static_cast<std::ptrdiff_t>(saltSize));
    return both;
  };
  keys_ = SrtpKeys{isGcm, keysOf(isServer_ ? 1 : 0), keysOf(isServer_ ? 0 : 1)};
  OPENSSL_cleanse(material.data(), material.size());
}

void DtlsSession::Close() {
  if (keys_ && !isClosed_) SSL_shutdown(ssl_.get());
}

}  // namespace linux_capture::transport
