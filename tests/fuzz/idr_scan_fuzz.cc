#include <cstddef>
#include <cstdint>
#include <vector>

#include "delivery/nal_scan.h"
#include "fuzz_input.h"

namespace {

using linux_capture::ContainsIdrNal;
using linux_capture::fuzz::Require;
using Bytes = std::vector<std::uint8_t>;

bool Scan(const Bytes& bytes) {
  return ContainsIdrNal(bytes.data(), bytes.size());
}

// Whether the bytes of an IDR slice's head stand anywhere at all.
bool HasIdrHead(const Bytes& bytes) {
  for (std::size_t i = 0; i + 4 <= bytes.size(); ++i) {
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 &&
        (bytes[i + 3] & 0x1F) == 5) {
      return true;
    }
  }
  return false;
}

Bytes Joined(const Bytes& front, const Bytes& back) {
  Bytes both = front;
  both.insert(both.end(), back.begin(), back.end());
  return both;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  const Bytes bytes(data, data + size);
  const bool found = Scan(bytes);
  Require(!found || HasIdrHead(bytes),
          "an IDR slice is found only where one "
          "begins");
  // A slice has more than its head, so one at the very end is none.
  const Bytes padded = Joined(bytes, {0xFF, 0xFF, 0xFF});
  Require(Scan(padded) == HasIdrHead(padded),
          "every slice that has a body is found");
  Require(!found || Scan(Joined({0, 0, 0, 1, 9, 0x10}, bytes)),
          "a delimiter in front hides no slice");
  Require(!found || Scan(Joined(bytes, bytes)), "nothing behind hides a slice");
  Require(Scan(Joined(bytes, {0, 0, 0, 1, 0x65, 0x88, 0x84})),
          "an appended slice is found");
  return 0;
}
