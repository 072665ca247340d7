#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_ALLOCATION_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_ALLOCATION_H_

#include <cstdint>
#include <vector>

namespace linux_capture {

// All values are bits per second.
inline constexpr std::uint32_t kMinRequestedBitrate = 100'000;
inline constexpr std::uint32_t kMaxRequestedBitrate = 300'000'000;

// A requested total as a whole number within the accepted range. A value that
// is not a number counts as too low.
std::uint32_t ClampRequestedBitrate(double bitsPerSecond);

// What one branch may be given.
struct BitrateRange {
  std::uint32_t floor = 0;
  std::uint32_t ceiling = 0;  // never below the floor
};

// A branch may be lowered to a fiftieth of its configured rate and never
// raised above it; no branch goes below kMinRequestedBitrate.
BitrateRange BitrateRangeOf(std::int32_t configuredBitrate);

// Splits `requested` over the branches, one share per configured bitrate. The
// shares add up to the request, or to what all floors or all ceilings allow;
// what is above the floors is shared in proportion to the headroom.
std::vector<std::uint32_t> AllocateBitrate(
    const std::vector<std::int32_t>& configuredBitrates,
    std::uint32_t requested);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_ALLOCATION_H_
