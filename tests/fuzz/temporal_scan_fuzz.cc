#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "delivery/nal_scan.h"
#include "fuzz_input.h"

namespace {

using linux_capture::ScanTemporalId;
using linux_capture::TemporalIdScan;
using linux_capture::fuzz::Require;
using Bytes = std::vector<std::uint8_t>;

TemporalIdScan Scan(const Bytes& bytes) {
  return ScanTemporalId(bytes.data(), bytes.size());
}

bool IsSame(const TemporalIdScan& a, const TemporalIdScan& b) {
  return a.temporalId == b.temporalId &&
         std::string(a.source) == std::string(b.source);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  const Bytes bytes(data, data + size);
  const TemporalIdScan scan = Scan(bytes);
  const std::string source = scan.source;
  if (scan.temporalId == -1) {
    Require(source == "missing", "what was not found has no source");
  } else {
    Require(scan.temporalId >= 0 && scan.temporalId <= 7,
            "a temporal layer has three bits");
    Require(source == "h264-prefix-nal-temporal-id" ||
                source == "h264-svc-slice-extension-temporal-id",
            "what was found names its source");
    Bytes longer = bytes;
    longer.insert(longer.end(), {0, 0, 0, 1, 14, 0, 1, 0xFF});
    Require(IsSame(Scan(longer), scan), "the first unit counts");
  }
  // With nothing in front, the layer is the one that was written.
  const auto layer = static_cast<std::uint8_t>(size % 8);
  Bytes made = {0, 0, 0, 1, 0x6E, 0x80, 0, 0};
  made[6] = static_cast<std::uint8_t>(layer >> 2);
  made[7] = static_cast<std::uint8_t>((layer & 3) << 6);
  made.insert(made.end(), bytes.begin(), bytes.end());
  Require(Scan(made).temporalId == layer, "a prefix unit is read");
  return 0;
}
