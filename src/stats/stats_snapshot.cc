#include "stats/stats_snapshot.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "base/gst_handles.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"

namespace linux_capture {
namespace {

// a - b, saturated to what 63 bits hold.
std::int64_t SaturatedDifference(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::int64_t>::max();
  return a >= b ? static_cast<std::int64_t>(std::min(a - b, kMax))
                : -static_cast<std::int64_t>(std::min(b - a, kMax));
}

std::uint64_t SpanUs(std::uint64_t firstUs, std::uint64_t lastUs) {
  return firstUs != 0 && lastUs > firstUs ? lastUs - firstUs : 0;
}

// A named rate limiter of the launched pipeline knows what it dropped.
void ReadRateLimiter(VideoBranchStats& stats) REQUIRES(g_mutex) {
  const GstElementPtr videoRate = FindElement(
      g_videoPipeline->get(), "videoRate" + std::to_string(stats.branchIndex));
  if (!videoRate) return;
  guint64 dropped = 0;
  guint64 duplicated = 0;
  g_object_get(videoRate.get(), "drop", &dropped, "duplicate", &duplicated,
               nullptr);
  stats.droppedFrames = dropped;
  stats.duplicateFrames = duplicated;
}

// Software records leave the bridge's counters to its per-branch slots.
void ReadBridgeSlots(VideoBranchStats& stats) {
  if (!IsTrackedBranch(stats.branchIndex)) return;
  const auto slot = static_cast<std::size_t>(stats.branchIndex);
  stats.bridgeQueuedPackets = g_videoBridgeQueuedByBranch[slot].load();
  stats.bridgeDroppedPackets = g_videoBridgeDroppedByBranch[slot].load();
  stats.bridgeSuppressedDeltaPackets =
      g_videoBridgeSuppressedDeltaByBranch[slot].load();
  stats.bridgeKeyframeRecoveryRequests =
      g_videoBridgeKeyframeRecoveryByBranch[slot].load();
}

std::vector<BranchReport> ReportBranches() REQUIRES(g_mutex) {
  std::vector<BranchReport> reports;
  std::vector<VideoBranchStats> hardware;
  {
    const MutexLock lock(g_hardwareStatsMutex);
    hardware = *g_hardwareBranchStats;
  }
  for (VideoBranchStats& stats : hardware) {
    ReadRateLimiter(stats);
    reports.push_back(MakeBranchReport(stats, true));
  }
  for (const auto& record : *g_openH264Branches) {
    VideoBranchStats stats;
    {
      const MutexLock lock(record->mutex);
      stats = record->stats;
      // A frame is encoded, counted and handed over under this mutex, so its
      // fate is in the report as soon as the frame itself is.
      ReadBridgeSlots(stats);
    }
    ReadRateLimiter(stats);
    reports.push_back(MakeBranchReport(stats, false));
  }
  return reports;
}

}  // namespace

BranchReport MakeBranchReport(const VideoBranchStats& stats, bool isHardware) {
  BranchReport report;
  report.stats = stats;
  report.isHardware = isHardware;
  if (stats.firstFrameAtMs < stats.lastFrameAtMs) {
    const auto spanMs =
        static_cast<double>(stats.lastFrameAtMs - stats.firstFrameAtMs);
    report.observedFps =
        static_cast<double>(stats.encodedFrames) * 1000.0 / spanMs;
    report.byteRate = static_cast<double>(stats.bytesEncoded) * 1000.0 / spanMs;
  }
  report.allTemporalLayersEncoded = stats.temporalFrameCounts[0] != 0 &&
                                    stats.temporalFrameCounts[1] != 0 &&
                                    stats.temporalFrameCounts[2] != 0;
  return report;
}

std::int64_t FirstAudioVideoOffsetUs(std::uint64_t firstAudioUs,
                                     std::uint64_t firstVideoUs) {
  if (firstAudioUs == 0 || firstVideoUs == 0) return 0;
  return SaturatedDifference(firstAudioUs, firstVideoUs);
}

std::int64_t AudioVideoDriftUs(std::uint64_t firstAudioUs,
                               std::uint64_t lastAudioUs,
                               std::uint64_t firstVideoUs,
                               std::uint64_t lastVideoUs) {
  return SaturatedDifference(SpanUs(firstAudioUs, lastAudioUs),
                             SpanUs(firstVideoUs, lastVideoUs));
}

std::uint64_t StatsSnapshot::Of(const Counter& counter) const noexcept {
  for (std::size_t i = 0; i < kCounters.size(); ++i) {
    if (kCounters[i].counter == &counter) return counters[i];
  }
  return 0;
}

StatsSnapshot TakeStatsSnapshot() {
  StatsSnapshot snapshot;
  const CallerLock lock(g_mutex, g_captureCallers);
  // Before the texts: what counts an error has set its text by then.
  for (std::size_t i = 0; i < kCounters.size(); ++i) {
    snapshot.counters[i] = kCounters[i].counter->Get();
  }
  snapshot.isCapturing = g_isCapturing.load();
  snapshot.width = g_width.Get();
  snapshot.height = g_height.Get();
  snapshot.interruption = g_interruption.Get();
  snapshot.config = *g_activeVideoConfig;
  snapshot.selection = *g_encoderSelection;
  snapshot.selectedEncoder = *g_selectedVideoEncoder;
  snapshot.videoPipeline = *g_videoPipelineDescription;
  snapshot.audioPipeline = *g_audioPipelineDescription;
  snapshot.lastGstBusError = *g_lastGstBusError;
  snapshot.lastOpenH264Error = g_lastOpenH264Error->Get();
  snapshot.providers = *g_providerProbeReports;
  snapshot.firstAudioVideoOffsetUs =
      FirstAudioVideoOffsetUs(snapshot.Of(g_firstAudioTimestampUs),
                              snapshot.Of(g_firstVideoTimestampUs));
  snapshot.audioVideoDriftUs = AudioVideoDriftUs(
      snapshot.Of(g_firstAudioTimestampUs), snapshot.Of(g_lastAudioTimestampUs),
      snapshot.Of(g_firstVideoTimestampUs),
      snapshot.Of(g_lastVideoTimestampUs));
  {
    const MutexLock statsLock(g_audioSourceStatsMutex);
    snapshot.audioSources = *g_audioSourceStats;
  }
  {
    const MutexLock capsLock(g_capsMutex);
    snapshot.videoCaps = *g_lastVideoCaps;
    snapshot.audioCaps = *g_lastAudioCaps;
  }
  snapshot.branches = ReportBranches();
  return snapshot;
}

}  // namespace linux_capture
