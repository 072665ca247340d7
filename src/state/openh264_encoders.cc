#include "state/openh264_encoders.h"

#include <algorithm>

namespace linux_capture {

void DestroyOpenH264Branches() {
  for (const auto& record : *g_openH264Branches) {
    const MutexLock lock(record->mutex);
    if (!record->encoder) continue;
    record->encoder->Uninitialize();
    record->encoder.reset();
  }
  g_openH264Branches->clear();
}

OpenH264BranchEncoder* FindOpenH264Branch(std::int32_t branchIndex) {
  const auto found =
      std::find_if(g_openH264Branches->begin(), g_openH264Branches->end(),
                   [branchIndex](const auto& record) {
                     return record->branch.branchIndex == branchIndex;
                   });
  return found == g_openH264Branches->end() ? nullptr : found->get();
}

void ResetOpenH264BranchStats() {
  for (const auto& record : *g_openH264Branches) {
    const MutexLock lock(record->mutex);
    record->stats = ZeroedBranchStats(record->branch);
  }
}

}  // namespace linux_capture
