#include "stats/stats_reset.h"

#include <glib.h>

#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

void ZeroBranchSlots() {
  for (BranchCounters* slots :
       {&g_videoBridgeQueuedByBranch, &g_videoBridgeDroppedByBranch,
        &g_videoBridgeSuppressedDeltaByBranch,
        &g_videoBridgeKeyframeRecoveryByBranch,
        &g_hardwareSyntheticTemporalSequenceByBranch}) {
    for (auto& slot : *slots) slot.store(0);
  }
  for (auto& flag : g_videoBridgeNeedsKeyframeRecovery) flag.store(false);
}

void ZeroAudioSourceStats() {
  const MutexLock lock(g_audioSourceStatsMutex);
  for (AudioSourceStats& stats : *g_audioSourceStats) {
    AudioSourceStats fresh;
    fresh.sourceIndex = stats.sourceIndex;
    fresh.metadata = std::move(stats.metadata);
    stats = std::move(fresh);
  }
}

void ZeroHardwareBranchStats() REQUIRES(g_hardwareStatsMutex) {
  for (VideoBranchStats& stats : *g_hardwareBranchStats) {
    VideoBranchStats fresh;
    fresh.branchIndex = stats.branchIndex;
    fresh.width = stats.width;
    fresh.height = stats.height;
    fresh.fps = stats.fps;
    fresh.appliedBitrate = stats.appliedBitrate;
    fresh.appliedMaxBitrate = stats.appliedMaxBitrate;
    stats = fresh;
  }
}

}  // namespace

void ResetStatistics() {
  const CallerLock lock(g_mutex, g_captureCallers);
  ZeroAudioSourceStats();
  // All at one moment, or a packet that comes now would be counted in one place
  // and forgotten in another.
  OpenH264Pause pause;
  const MutexLock handOver(g_hardwareHandOverMutex);
  const MutexLock hardwareLock(g_hardwareStatsMutex);
  g_lastOpenH264Error->SetWith({},
                               [] { ZeroCounters(CounterLife::kStatistics); });
  ZeroBranchSlots();
  ZeroHardwareBranchStats();
  pause.ResetStats();
}

void ResetForNewSession(const CaptureConfig& config) {
  const CallerLock lock(g_mutex, g_captureCallers);
  g_lastGstBusError->clear();
  g_lastOpenH264Error->SetWith({}, [] { ZeroCounters(CounterLife::kSession); });
  ZeroBranchSlots();
  g_width.Set(config.width);
  g_height.Set(config.height);
  g_sessionClockOriginUs.Set(
      static_cast<std::uint64_t>(g_get_monotonic_time()));
  ResetAudioSourceStatsForConfig(config);

  g_selectedVideoEncoder->clear();
  g_videoPipelineDescription->clear();
  g_audioPipelineDescription->clear();
  {
    const MutexLock capsLock(g_capsMutex);
    g_lastVideoCaps->clear();
    g_lastAudioCaps->clear();
  }

  *g_encoderSelection = EncoderSelection{};
  *g_activeHardwareProfile = GStreamerHardwareEncoderProfile{};
}

}  // namespace linux_capture
