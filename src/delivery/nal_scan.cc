#include "delivery/nal_scan.h"

namespace linux_capture {
namespace {

constexpr std::uint8_t kNalTypeMask = 0x1F;
constexpr std::uint8_t kIdrSlice = 5;
constexpr std::uint8_t kPrefixNal = 14;
constexpr std::uint8_t kSliceExtension = 20;

}  // namespace

bool ContainsIdrNal(const std::uint8_t* data, std::size_t size) noexcept {
  if (size < 6) return false;
  for (std::size_t i = 4; i + 2 <= size; ++i) {
    if (data[i - 4] != 0 || data[i - 3] != 0) continue;
    std::uint8_t header = 0;
    if (data[i - 2] == 1) {
      header = data[i - 1];
    } else if (data[i - 2] == 0 && data[i - 1] == 1) {
      header = data[i];
    } else {
      continue;
    }
    if ((header & kNalTypeMask) == kIdrSlice) return true;
  }
  return false;
}

TemporalIdScan ScanTemporalId(const std::uint8_t* data,
                              std::size_t size) noexcept {
  TemporalIdScan scan;
  if (size <= 7) return scan;
  // `at` is the position of the NAL header; its three extension bytes follow.
  for (std::size_t at = 4; at + 3 < size; ++at) {
    const bool afterStartCode =
        data[at - 3] == 0 && data[at - 2] == 0 && data[at - 1] == 1;
    if (!afterStartCode) continue;
    const std::uint8_t type = data[at] & kNalTypeMask;
    if (type != kPrefixNal && type != kSliceExtension) continue;
    scan.temporalId = ((data[at + 2] & 1) << 2) | (data[at + 3] >> 6);
    scan.source = type == kPrefixNal ? "h264-prefix-nal-temporal-id"
                                     : "h264-svc-slice-extension-temporal-id";
    return scan;
  }
  return scan;
}

}  // namespace linux_capture
