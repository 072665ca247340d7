#include "stats/branch_stats.h"

#include <algorithm>

namespace linux_capture {

VideoBranchStats* FindHardwareBranchStats(std::int32_t branchIndex) {
  const auto found =
      std::find_if(g_hardwareBranchStats->begin(), g_hardwareBranchStats->end(),
                   [branchIndex](const VideoBranchStats& stats) {
                     return stats.branchIndex == branchIndex;
                   });
  return found == g_hardwareBranchStats->end() ? nullptr : &*found;
}

}  // namespace linux_capture
