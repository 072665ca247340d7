#ifndef LINUX_CAPTURE_DELIVERY_NAL_SCAN_H_
#define LINUX_CAPTURE_DELIVERY_NAL_SCAN_H_

#include <cstddef>
#include <cstdint>

namespace linux_capture {

// Whether an Annex B access unit holds an IDR slice.
bool ContainsIdrNal(const std::uint8_t* data, std::size_t size) noexcept;

// What the first prefix NAL unit or coded slice extension of an access unit
// says of its temporal layer. Diagnostic only: a packet's temporal index is
// always the one the encoder reported.
struct TemporalIdScan {
  int temporalId = -1;
  const char* source = "missing";
};
TemporalIdScan ScanTemporalId(const std::uint8_t* data,
                              std::size_t size) noexcept;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_NAL_SCAN_H_
