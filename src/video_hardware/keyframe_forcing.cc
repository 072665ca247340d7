#include "video_hardware/keyframe_forcing.h"

#include <gst/video/video.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/clock.h"
#include "base/gst_handles.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

bool SendForceKeyUnit(GstElement* encoder) {
  // The element takes the event's reference.
  return gst_element_send_event(encoder,
                                gst_video_event_new_upstream_force_key_unit(
                                    GST_CLOCK_TIME_NONE, TRUE, 0)) != FALSE;
}

// From here on the branch delivers nothing before the requested keyframe, and
// its layer pattern starts again with it.
void AwaitForcedKeyframe(std::int32_t branchIndex) {
  if (!IsTrackedBranch(branchIndex)) return;
  const auto slot = static_cast<std::size_t>(branchIndex);
  g_videoBridgeNeedsKeyframeRecovery[slot].exchange(true);
  g_hardwareSyntheticTemporalSequenceByBranch[slot].exchange(0);
}

// Keyframes that the branch has delivered so far.
std::uint64_t CountedKeyframes(std::int32_t branchIndex) {
  const MutexLock lock(g_hardwareStatsMutex);
  const VideoBranchStats* stats = FindHardwareBranchStats(branchIndex);
  return stats != nullptr ? stats->keyframes : 0;
}

enum class HardwareRequest { kAccepted, kRejected, kUntracked };

// `keyframesBefore` was read before the request was sent.
HardwareRequest RecordHardwareRequest(std::int32_t branchIndex, bool sent,
                                      std::uint64_t keyframesBefore) {
  const MutexLock lock(g_hardwareStatsMutex);
  VideoBranchStats* stats = FindHardwareBranchStats(branchIndex);
  if (stats == nullptr) return HardwareRequest::kUntracked;
  if (!sent) {
    ++stats->hardwareKeyframeRequestsFailed;
    return HardwareRequest::kRejected;
  }
  ++stats->hardwareKeyframeRequestsAccepted;
  stats->lastHardwareKeyframeRequestAtMs = WallClockMs();
  // A fast encoder may have delivered the keyframe by now; waiting for it then
  // would withhold the branch until the next one of its own accord.
  if (stats->keyframes == keyframesBefore) AwaitForcedKeyframe(branchIndex);
  return HardwareRequest::kAccepted;
}

bool ForceHardwareKeyframes() REQUIRES(g_mutex) {
  bool accepted = false;
  std::string message;
  for (const VideoBranchConfig& branch : g_activeVideoConfig->branches) {
    const std::string name =
        "videoEncoder" + std::to_string(branch.branchIndex);
    const GstElementPtr encoder = FindElement(g_videoPipeline->get(), name);
    if (!encoder) {
      message = "Linux hardware ForceKeyframe could not find " + name;
      continue;
    }
    const std::uint64_t keyframesBefore = CountedKeyframes(branch.branchIndex);
    const bool sent = SendForceKeyUnit(encoder.get());
    switch (RecordHardwareRequest(branch.branchIndex, sent, keyframesBefore)) {
      case HardwareRequest::kAccepted:
        accepted = true;
        break;
      case HardwareRequest::kRejected:
        message = "Linux hardware ForceKeyframe was rejected by " + name;
        break;
      case HardwareRequest::kUntracked:
        break;
    }
  }
  if (!accepted) {
    CountOpenH264Error(
        message.empty()
            ? "Linux hardware ForceKeyframe found no active video encoders"
            : message);
  }
  return accepted;
}

bool ForceOpenH264Keyframes() REQUIRES(g_mutex) {
  if (g_openH264Branches->empty()) {
    g_lastOpenH264Error->Set(
        "Linux ForceKeyframe requires active OpenH264 or hardware video "
        "encoders");
    return false;
  }
  bool attempted = false;
  bool allSucceeded = true;
  for (const auto& record : *g_openH264Branches) {
    if (!record) continue;
    const MutexLock lock(record->mutex);
    if (!record->encoder) continue;
    attempted = true;
    constexpr int kAllLayers = -1;
    const int result = record->encoder->ForceIntraFrame(true, kAllLayers);
    if (result == 0) continue;
    CountOpenH264Error("OpenH264 ForceIntraFrame failed for branch " +
                       std::to_string(record->branch.branchIndex) +
                       " result=" + std::to_string(result));
    allSucceeded = false;
  }
  return attempted && allSucceeded;
}

}  // namespace

bool ForceKeyframe() {
  const CallerLock lock(g_mutex, g_captureCallers);
  if (g_encoderSelection->hardwareSimulcastFpsSatisfied && *g_videoPipeline) {
    return ForceHardwareKeyframes();
  }
  return ForceOpenH264Keyframes();
}

}  // namespace linux_capture
