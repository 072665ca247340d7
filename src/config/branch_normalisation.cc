#include "config/branch_normalisation.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "config/bitrate_ladder.h"
#include "config/branch_fitting.h"

namespace linux_capture {
namespace {

// A branch that is not smaller and slower than the one before it costs an
// encoder and gives a receiver nothing to fall back to.
bool AddsALowerStep(const std::vector<VideoBranchConfig>& kept,
                    const VideoBranchConfig& branch) {
  const VideoBranchConfig& last = kept.back();
  if (branch.width >= last.width || branch.height >= last.height ||
      branch.fps >= last.fps) {
    return false;
  }
  if (branch.width <= 1 || branch.height <= 1) return false;
  return std::none_of(
      kept.begin(), kept.end(), [&branch](const VideoBranchConfig& other) {
        return other.width == branch.width && other.height == branch.height &&
               other.fps == branch.fps;
      });
}

std::vector<VideoBranchConfig> FittedBranches(const CaptureConfig& config) {
  std::vector<VideoBranchConfig> kept;
  kept.push_back(ScaleBranchToFitSourceAspect(
      config.branches.front(), config.sourceWidth, config.sourceHeight, 1));
  kept.front().branchIndex = 0;
  const VideoBranchConfig primary = kept.front();
  std::int32_t position = 0;
  std::int32_t divisor = 1;
  for (auto requested = config.branches.begin() + 1;
       requested != config.branches.end(); ++requested) {
    ++position;
    if (divisor < 4) divisor *= 2;  // a third secondary is never requested
    VideoBranchConfig branch = ScaleBranchToFitSourceAspect(
        *requested, primary.width, primary.height, divisor);
    branch.branchIndex = position;
    if (AddsALowerStep(kept, branch)) kept.push_back(branch);
  }
  return kept;
}

}  // namespace

void NormaliseBranchesToSource(CaptureConfig& config) {
  if (config.sourceWidth < 1 || config.sourceHeight < 1 ||
      config.branches.empty()) {
    return;
  }
  std::vector<VideoBranchConfig> fitted = FittedBranches(config);
  config.width = fitted.front().width;
  config.height = fitted.front().height;
  if (config.encoderRequirement == "hardware") {
    ApplyHardwareBitrateLadder(config.branches, fitted);
    config.bitrate = fitted.front().bitrate;
    config.minBitrate = fitted.front().minBitrate;
    config.maxBitrate = fitted.front().maxBitrate;
  }
  config.branches = std::move(fitted);
}

}  // namespace linux_capture
