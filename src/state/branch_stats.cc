#include "state/branch_stats.h"

#include <algorithm>

namespace linux_capture {

VideoBranchStats ZeroedBranchStats(const VideoBranchConfig& branch) {
  VideoBranchStats stats;
  stats.branchIndex = branch.branchIndex;
  stats.width = branch.width;
  stats.height = branch.height;
  stats.fps = branch.fps;
  return stats;
}

VideoBranchStats* FindHardwareBranchStats(std::int32_t branchIndex) {
  const auto found =
      std::find_if(g_hardwareBranchStats->begin(), g_hardwareBranchStats->end(),
                   [branchIndex](const VideoBranchStats& stats) {
                     return stats.branchIndex == branchIndex;
                   });
  return found == g_hardwareBranchStats->end() ? nullptr : &*found;
}

}  // namespace linux_capture
