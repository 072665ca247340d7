#include "transport/certificate.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <stdexcept>

namespace linux_capture::transport {
namespace {

constexpr long kSecondsOfDay = 86'400;

const EVP_MD* DigestOf(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  if (name == "sha-256") return EVP_sha256();
  if (name == "sha-384") return EVP_sha384();
  if (name == "sha-512") return EVP_sha512();
  return nullptr;
}

void Demand(bool isGood, const char* what) {
  if (!isGood) ThrowOpenSslError(what);
}

}  // namespace

void ThrowOpenSslError(const char* what) {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_get_error(), text.data(), text.size());
  throw std::runtime_error(std::string(what) + ": " + text.data());
}

Certificate MakeCertificate() {
  constexpr const char* kWhat = "no certificate could be made";
  Certificate made;
  made.key.reset(EVP_EC_gen("P-256"));
  Demand(made.key != nullptr, kWhat);
  made.certificate.reset(X509_new());
  X509* const certificate = made.certificate.get();
  Demand(certificate != nullptr, kWhat);
  std::uint64_t serial = 0;
  Demand(RAND_bytes(reinterpret_cast<unsigned char*>(&serial),
                    sizeof(serial)) == 1,
         kWhat);
  Demand(X509_set_version(certificate, X509_VERSION_3) == 1, kWhat);
  // The number is positive.
  Demand(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate),
                                 (serial >> 1) | 1) == 1,
         kWhat);
  // A clock of the other side may be behind.
  X509_gmtime_adj(X509_getm_notBefore(certificate), -kSecondsOfDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 30 * kSecondsOfDay);
  X509_NAME* const name = X509_get_subject_name(certificate);
  Demand(X509_NAME_add_entry_by_txt(
             name, "CN", MBSTRING_ASC,
             reinterpret_cast<const unsigned char*>("WebRTC"), -1, -1, 0) == 1,
         kWhat);
  Demand(X509_set_issuer_name(certificate, name) == 1, kWhat);
  Demand(X509_set_pubkey(certificate, made.key.get()) == 1, kWhat);
  Demand(X509_sign(certificate, made.key.get(), EVP_sha256()) > 0, kWhat);
  return made;
}

std::string FingerprintOf(const X509& certificate,
                          const std::string& digestName) {
  const EVP_MD* const digest = DigestOf(digestName);
  if (digest == nullptr) return "";
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int count = 0;
  if (X509_digest(&certificate, digest, bytes.data(), &count) != 1) return "";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (unsigned int index = 0; index < count; ++index) {
    if (index > 0) text += ':';
    text += kDigits[bytes[index] >> 4];
    text += kDigits[bytes[index] & 15];
  }
  return text;
}

}  // namespace linux_capture::transport
