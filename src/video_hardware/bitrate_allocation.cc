#include "video_hardware/bitrate_allocation.h"

#include <algorithm>
#include <cstddef>

namespace linux_capture {

std::uint32_t ClampRequestedBitrate(double bitsPerSecond) {
  // Written so that NaN, which compares false with everything, is too low.
  if (!(bitsPerSecond >= kMinRequestedBitrate)) return kMinRequestedBitrate;
  if (bitsPerSecond > kMaxRequestedBitrate) return kMaxRequestedBitrate;
  return static_cast<std::uint32_t>(bitsPerSecond);
}

BitrateRange BitrateRangeOf(std::int32_t configuredBitrate) {
  constexpr std::uint32_t kFloorDivisor = 50;
  const auto configured = static_cast<std::uint32_t>(
      std::max<std::int32_t>(configuredBitrate, kMinRequestedBitrate));
  return {std::max(kMinRequestedBitrate, configured / kFloorDivisor),
          configured};
}

std::vector<std::uint32_t> AllocateBitrate(
    const std::vector<std::int32_t>& configuredBitrates,
    std::uint32_t requested) {
  std::vector<BitrateRange> ranges;
  std::vector<std::uint32_t> shares;
  std::uint64_t floorSum = 0;
  std::uint64_t ceilingSum = 0;
  for (const std::int32_t configured : configuredBitrates) {
    const BitrateRange range = BitrateRangeOf(configured);
    ranges.push_back(range);
    shares.push_back(range.floor);
    floorSum += range.floor;
    ceilingSum += range.ceiling;
  }
  const std::uint64_t target =
      std::clamp<std::uint64_t>(requested, floorSum, ceilingSum);
  const std::uint64_t headroom = ceilingSum - floorSum;
  if (target == floorSum || headroom == 0) return shares;

  // A headroom below 2^31 times an extra of at most 3 * 10^8 fits 64 bits.
  const std::uint64_t extra = target - floorSum;
  std::uint64_t left = target;
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    const std::uint64_t own = ranges[i].ceiling - ranges[i].floor;
    const std::uint64_t share = ranges[i].floor + own * extra / headroom;
    shares[i] = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(share, ranges[i].ceiling));
    left -= shares[i];
  }
  // The divisions rounded down; what they left goes to the first branches that
  // can take it.
  for (std::size_t i = 0; i < ranges.size() && left != 0; ++i) {
    const std::uint64_t more =
        std::min<std::uint64_t>(ranges[i].ceiling - shares[i], left);
    shares[i] += static_cast<std::uint32_t>(more);
    left -= more;
  }
  return shares;
}

}  // namespace linux_capture
