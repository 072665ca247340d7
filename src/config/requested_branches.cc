#include "config/requested_branches.h"

#include <algorithm>
#include <cstdint>

#include "config/branch_fitting.h"

namespace linux_capture {

VideoBranchConfig RequestedPrimaryBranch(const CaptureConfig& config) {
  VideoBranchConfig branch;
  branch.branchIndex = 0;
  branch.width = config.width;
  branch.height = config.height;
  branch.fps = config.fps;
  branch.bitrate = config.bitrate;
  branch.minBitrate = config.minBitrate;
  branch.maxBitrate = config.maxBitrate;
  ValidateVideoBranchConfig(branch);
  return branch;
}

VideoBranchConfig RequestedSecondaryBranch(const VideoBranchConfig& given,
                                           std::int32_t captureMinBitrate) {
  VideoBranchConfig branch = given;
  branch.minBitrate = std::min(branch.bitrate, std::max(captureMinBitrate, 1));
  branch.maxBitrate = branch.bitrate;
  ValidateVideoBranchConfig(branch);
  return branch;
}

}  // namespace linux_capture
