#include "barcode.h"

namespace linux_capture::bench {
namespace {

constexpr int kCheckBits = 12;
constexpr int kNumberBits = kBarcodeCells - kCheckBits;
constexpr std::uint32_t kPolynomial = 0x80F;  // CRC-12, x^12 left out
constexpr std::uint32_t kStart = 0xA5A;

std::uint32_t CheckBits(std::uint32_t number) {
  std::uint32_t remainder = kStart;
  for (int bit = kNumberBits - 1; bit >= 0; --bit) {
    const std::uint32_t top = remainder >> (kCheckBits - 1);
    const std::uint32_t next = (number >> bit) & 1U;
    remainder = (remainder << 1) & ((1U << kCheckBits) - 1);
    if (top != next) remainder ^= kPolynomial;
  }
  return remainder;
}

}  // namespace

std::uint32_t BarcodeCells(std::uint32_t number) {
  const std::uint32_t kept = number % kNumberLimit;
  return kept << kCheckBits | CheckBits(kept);
}

}  // namespace linux_capture::bench
