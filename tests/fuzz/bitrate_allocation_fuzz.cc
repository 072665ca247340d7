#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_input.h"
#include "video_hardware/bitrate_allocation.h"

namespace {

using linux_capture::AllocateBitrate;
using linux_capture::BitrateRange;
using linux_capture::BitrateRangeOf;
using linux_capture::ClampRequestedBitrate;
using linux_capture::kMaxRequestedBitrate;
using linux_capture::kMinRequestedBitrate;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const auto asked = input.Take<double>();
  const std::uint32_t clamped = ClampRequestedBitrate(asked);
  Require(clamped >= kMinRequestedBitrate && clamped <= kMaxRequestedBitrate,
          "a request is within its range");
  if (asked >= kMinRequestedBitrate && asked <= kMaxRequestedBitrate) {
    Require(clamped == static_cast<std::uint32_t>(std::floor(asked)),
            "a good request is kept");
  }

  std::vector<std::int32_t> configured(input.Take<std::uint8_t>() % 17U);
  for (std::int32_t& bitrate : configured) bitrate = input.TakeInt();
  const std::uint32_t requested =
      input.TakeBool() ? clamped : input.Take<std::uint32_t>();
  const std::vector<std::uint32_t> shares =
      AllocateBitrate(configured, requested);
  Require(shares.size() == configured.size(), "every branch has a share");
  std::uint64_t sum = 0;
  std::uint64_t floorSum = 0;
  std::uint64_t ceilingSum = 0;
  for (std::size_t i = 0; i < shares.size(); ++i) {
    const BitrateRange range = BitrateRangeOf(configured[i]);
    Require(range.floor >= kMinRequestedBitrate && range.floor <= range.ceiling,
            "a range is in order");
    Require(shares[i] >= range.floor && shares[i] <= range.ceiling,
            "a share is within its range");
    sum += shares[i];
    floorSum += range.floor;
    ceilingSum += range.ceiling;
  }
  Require(sum == std::clamp<std::uint64_t>(requested, floorSum, ceilingSum),
          "the shares add up to the request");
  return 0;
}
