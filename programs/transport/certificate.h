#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_CERTIFICATE_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_CERTIFICATE_H_

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace linux_capture::transport {

struct X509Deleter {
  void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
struct EvpKeyDeleter {
  void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};
using X509Ptr = std::unique_ptr<X509, X509Deleter>;
using EvpKeyPtr = std::unique_ptr<EVP_PKEY, EvpKeyDeleter>;

// What this side proves itself by: a key that lives as long as the process, so
// that two sessions cannot be told to be of one user.
struct Certificate {
  EvpKeyPtr key;
  X509Ptr certificate;
};

Certificate MakeCertificate();

// In capital hexadecimal with colons, as SDP has it; empty for a digest that is
// not known or is too weak to tell anything ("md5", "sha-1").
std::string FingerprintOf(const X509& certificate,
                          const std::string& digestName);

// As std::runtime_error, with what OpenSSL says.
[[noreturn]] void ThrowOpenSslError(const char* what);

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_CERTIFICATE_H_
