#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_DTLS_SESSION_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_DTLS_SESSION_H_

#include <openssl/ssl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/frames.h"
#include "transport/certificate.h"

namespace linux_capture::transport {

struct SslContextDeleter {
  void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
};
struct SslDeleter {
  void operator()(SSL* ssl) const noexcept { SSL_free(ssl); }
};
struct BioMethodDeleter {
  void operator()(BIO_METHOD* method) const noexcept { BIO_meth_free(method); }
};

// The keys that a handshake leaves: the master key with the salt behind it, of
// what this side sends and of what it receives.
struct SrtpKeys {
  bool isGcm = false;
  std::vector<std::uint8_t> sending;
  std::vector<std::uint8_t> receiving;
};

// The handshake of DTLS that keys SRTP, over a transport of datagrams that is
// somebody else's. Of one thread.
class DtlsSession {
 public:
  using Send = std::function<void(programs::Bytes datagram)>;

  // `digest` is what the certificate of the other side must have; it is looked
  // at inside of the handshake, so that a wrong one never completes it.
  DtlsSession(const Certificate& own, std::string digestName,
              std::string digest, bool isServer, Send send);
  DtlsSession(const DtlsSession&) = delete;
  DtlsSession& operator=(const DtlsSession&) = delete;
  ~DtlsSession() = default;

  // Each goes on as far as it can and throws std::runtime_error when the
  // handshake has failed.
  void Start();
  void Take(programs::Bytes datagram);
  void TimerRan();

  // When TimerRan is to be called, if at all.
  [[nodiscard]] std::optional<std::chrono::milliseconds> next_timer() const;

  // Once the handshake is complete.
  [[nodiscard]] const std::optional<SrtpKeys>& keys() const { return keys_; }
  // The other side said good-bye.
  [[nodiscard]] bool is_closed() const { return isClosed_; }

  // Says good-bye.
  void Close();

 private:
  static int VerifyCertificate(X509_STORE_CTX* store, void* session);
  static int WriteDatagram(BIO* bio, const char* data, int size);
  static int ReadDatagram(BIO* bio, char* data, int size);
  static long ControlDatagrams(BIO* bio, int command, long number, void* data);

  void Advance();
  void ExportKeys();

  std::string digestName_;
  std::string digest_;
  bool isServer_;
  bool isFingerprintWrong_ = false;
  bool isClosed_ = false;
  Send send_;
  // What OpenSSL may read now; of the caller of Take.
  programs::Bytes arrived_;
  std::optional<SrtpKeys> keys_;
  std::unique_ptr<BIO_METHOD, BioMethodDeleter> method_;
  std::unique_ptr<SSL_CTX, SslContextDeleter> context_;
  std::unique_ptr<SSL, SslDeleter> ssl_;
};

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_DTLS_SESSION_H_
