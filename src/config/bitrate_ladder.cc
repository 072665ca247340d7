#include "config/bitrate_ladder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <tuple>
#include <vector>

namespace linux_capture {
namespace {

// The rates that the primary branch gets and the others take a share of.
struct LadderRates {
  std::int32_t cap = 0;
  std::int32_t target = 0;
  std::int32_t minimum = 0;
};

// The smallest requested branch that still covers the fitted primary, since
// the host chose its rates for about as many pixels as will be encoded.
const VideoBranchConfig& LadderReference(
    const std::vector<VideoBranchConfig>& requested,
    const VideoBranchConfig& primary) {
  const auto cost = [](const VideoBranchConfig& branch) {
    return std::tuple(std::int64_t{branch.width} * branch.height, branch.fps,
                      branch.maxBitrate);
  };
  const VideoBranchConfig* best = nullptr;
  for (const VideoBranchConfig& branch : requested) {
    const bool coversPrimary =
        branch.width >= primary.width && branch.height >= primary.height;
    if (coversPrimary && (best == nullptr || cost(branch) < cost(*best))) {
      best = &branch;
    }
  }
  return best != nullptr ? *best : requested.front();
}

LadderRates RatesOfReference(const VideoBranchConfig& reference) {
  LadderRates rates;
  rates.cap = std::max(
      reference.maxBitrate > 0 ? reference.maxBitrate : reference.bitrate,
      kMinHardwareBranchBitrate);
  const bool hasTarget = reference.bitrate > 0 && reference.bitrate < rates.cap;
  rates.target = std::max(hasTarget ? reference.bitrate : rates.cap,
                          kMinHardwareBranchBitrate);
  rates.minimum = reference.minBitrate > 0
                      ? std::min(reference.minBitrate, rates.cap)
                      : kMinHardwareBranchBitrate;
  return rates;
}

// Pixels per second. In double precision, since three 32-bit factors overflow
// every integer type.
double PixelRate(const VideoBranchConfig& branch) {
  return static_cast<double>(std::max(branch.width, 1)) *
         std::max(branch.height, 1) * std::max(branch.fps, 1);
}

// `share` is below 1, so the result always fits.
std::int32_t ShareOf(std::int32_t rate, double share) {
  return static_cast<std::int32_t>(std::llround(share * rate));
}

}  // namespace

void ApplyHardwareBitrateLadder(const std::vector<VideoBranchConfig>& requested,
                                std::vector<VideoBranchConfig>& fitted) {
  if (requested.empty() || fitted.empty()) return;
  const VideoBranchConfig primary = fitted.front();
  const LadderRates rates =
      RatesOfReference(LadderReference(requested, primary));
  for (VideoBranchConfig& branch : fitted) {
    const bool isPrimary = branch.branchIndex == primary.branchIndex;
    const double ratio = PixelRate(branch) / PixelRate(primary);
    std::int32_t target = rates.target;
    std::int32_t cap = rates.cap;
    if (!isPrimary && ratio < 1.0) {
      // Smaller pictures need more bits per pixel, so the rate falls more
      // slowly than the pixel rate.
      const double share = std::pow(ratio, 0.75);
      target = ShareOf(rates.target, share);
      cap = ShareOf(rates.cap, share);
    }
    branch.bitrate =
        std::max(std::min(target, rates.cap), kMinHardwareBranchBitrate);
    branch.maxBitrate = std::max(std::min(cap, rates.cap), branch.bitrate);
    branch.minBitrate = isPrimary ? rates.minimum : kMinHardwareBranchBitrate;
  }
}

}  // namespace linux_capture
