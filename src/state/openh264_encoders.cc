#include "state/openh264_encoders.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace linux_capture {
namespace {

bool TryLockAllBranches() NO_THREAD_SAFETY_ANALYSIS {
  const auto& branches = *g_openH264Branches;
  const auto busy = std::find_if(
      branches.begin(), branches.end(),
      [](const auto& record)
          NO_THREAD_SAFETY_ANALYSIS { return !record->mutex.try_lock(); });
  if (busy == branches.end()) return true;
  std::for_each(branches.begin(), busy,
                [](const auto& record)
                    NO_THREAD_SAFETY_ANALYSIS { record->mutex.unlock(); });
  return false;
}

}  // namespace

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

// The compiler cannot know which mutexes a list has: its analysis stops here.
OpenH264Pause::OpenH264Pause() NO_THREAD_SAFETY_ANALYSIS {
  // Together as long as a long frame.
  constexpr int kLooks = 40;
  for (int look = 0; look < kLooks; ++look) {
    if (TryLockAllBranches()) return;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
  for (const auto& record : *g_openH264Branches) record->mutex.lock();
}

OpenH264Pause::~OpenH264Pause() NO_THREAD_SAFETY_ANALYSIS {
  for (const auto& record : *g_openH264Branches) record->mutex.unlock();
}

// Members, because only who has such a pause may ask.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
std::vector<VideoBranchStats> OpenH264Pause::Stats() const
    NO_THREAD_SAFETY_ANALYSIS {
  std::vector<VideoBranchStats> stats;
  stats.reserve(g_openH264Branches->size());
  for (const auto& record : *g_openH264Branches) {
    stats.push_back(record->stats);
  }
  return stats;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
void OpenH264Pause::ResetStats() NO_THREAD_SAFETY_ANALYSIS {
  for (const auto& record : *g_openH264Branches) {
    record->stats = ZeroedBranchStats(record->branch);
  }
}

}  // namespace linux_capture
