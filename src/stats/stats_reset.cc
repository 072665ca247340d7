#include "stats/stats_reset.h"

#include <glib.h>

#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

// What both resets zero.
void ZeroCounters() {
  for (Counter* counter : {&g_framesCaptured,
                           &g_framesEncoded,
                           &g_keyframesEncoded,
                           &g_deltaFramesEncoded,
                           &g_cpuMappedVideoFrames,
                           &g_audioSamplesCaptured,
                           &g_audioPacketsCaptured,
                           &g_audioNonZeroSamplesCaptured,
                           &g_audioAbsoluteSampleSum,
                           &g_audioClippedSamplesCaptured,
                           &g_audioSilentPackets,
                           &g_audioConsecutiveSilentPackets,
                           &g_audioMaxConsecutiveSilentPackets,
                           &g_audioLastPacketAtMs,
                           &g_audioLastNonZeroAtMs,
                           &g_audioLastNonZeroSamples,
                           &g_audioLastAbsoluteSampleSum,
                           &g_audioLastClippedSamples,
                           &g_firstVideoTimestampUs,
                           &g_lastVideoTimestampUs,
                           &g_firstAudioTimestampUs,
                           &g_lastAudioTimestampUs,
                           &g_videoBridgeQueuedPackets,
                           &g_videoBridgeDroppedPackets,
                           &g_videoBridgeSuppressedDeltaPackets,
                           &g_audioBridgeQueuedPackets,
                           &g_audioBridgeDroppedPackets,
                           &g_openH264Errors}) {
    counter->Set(0);
  }
  g_audioPeakAbsoluteSample.Set(0);
  g_audioLastPeakAbsoluteSample.Set(0);
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

void ZeroHardwareBranchStats() {
  const MutexLock lock(g_hardwareStatsMutex);
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
  const MutexLock lock(g_mutex);
  ZeroCounters();
  ZeroAudioSourceStats();
  g_lastOpenH264Error->Clear();
  ZeroHardwareBranchStats();
  ResetOpenH264BranchStats();
}

void ResetForNewSession(const CaptureConfig& config) {
  const MutexLock lock(g_mutex);
  ZeroCounters();
  g_width.Set(config.width);
  g_height.Set(config.height);
  g_sessionClockOriginUs.Set(
      static_cast<std::uint64_t>(g_get_monotonic_time()));
  ResetAudioSourceStatsForConfig(config);

  g_selectedVideoEncoder->clear();
  g_videoPipelineDescription->clear();
  g_audioPipelineDescription->clear();
  g_gstBusErrors.Set(0);
  g_gstBusEos.Set(0);
  {
    const MutexLock capsLock(g_capsMutex);
    g_lastVideoCaps->clear();
    g_lastAudioCaps->clear();
  }
  g_lastGstBusError->clear();
  g_lastOpenH264Error->Clear();

  *g_encoderSelection = EncoderSelection{};
  *g_activeHardwareProfile = GStreamerHardwareEncoderProfile{};
}

}  // namespace linux_capture
