#include "stats/stats_snapshot.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

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

struct CountedBranches {
  std::vector<VideoBranchStats> hardware;
  std::vector<VideoBranchStats> software;
};

// The totals and what they are made of, at one moment. A frame of software is
// encoded, counted and handed over under the mutex of its encoder, and a packet
// of hardware is counted and handed over under that of the hand-over, so their
// fate is in the report as soon as they are themselves.
CountedBranches ReadCounts(StatsSnapshot& snapshot) REQUIRES(g_mutex) {
  CountedBranches branches;
  const OpenH264Pause pause;
  const MutexLock handOver(g_hardwareHandOverMutex);
  const MutexLock lock(g_hardwareStatsMutex);
  snapshot.lastOpenH264Error = g_lastOpenH264Error->GetWith([&snapshot] {
    for (std::size_t i = 0; i < kCounters.size(); ++i) {
      snapshot.counters[i] = kCounters[i].counter->Get();
    }
  });
  branches.hardware = *g_hardwareBranchStats;
  branches.software = pause.Stats();
  for (VideoBranchStats& stats : branches.software) ReadBridgeSlots(stats);
  return branches;
}

std::vector<BranchReport> ReportBranches(CountedBranches counted)
    REQUIRES(g_mutex) {
  std::vector<BranchReport> reports;
  for (VideoBranchStats& stats : counted.hardware) {
    ReadRateLimiter(stats);
    reports.push_back(MakeBranchReport(stats, true));
  }
  for (VideoBranchStats& stats : counted.software) {
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
  // Untested: the table has every counter.
  return 0;
}

StatsSnapshot TakeStatsSnapshot() {
  StatsSnapshot snapshot;
  const CallerLock lock(g_mutex, g_captureCallers);
  CountedBranches branches = ReadCounts(snapshot);
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
  snapshot.branches = ReportBranches(std::move(branches));
  return snapshot;
}

}  // namespace linux_capture
