#ifndef LINUX_CAPTURE_STATS_STATS_SNAPSHOT_H_
#define LINUX_CAPTURE_STATS_STATS_SNAPSHOT_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "base/capture_mutex.h"
#include "config/capture_config.h"
#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/provider_probe_report.h"

namespace linux_capture {

// One branch as the report shows it.
struct BranchReport {
  VideoBranchStats stats;
  bool isHardware = false;
  double observedFps = 0;  // frames per second
  double byteRate = 0;     // bytes per second
  bool allTemporalLayersEncoded = false;
};

// The whole report, every figure of it read once: figures that are made of
// others agree with them. What is left is to write it down.
struct StatsSnapshot {
  std::array<std::uint64_t, kCounters.size()> counters{};  // as kCounters
  bool isCapturing = false;
  std::int32_t width = 0;
  std::int32_t height = 0;
  const char* interruption = nullptr;  // one of error_code
  CaptureConfig config;
  EncoderSelection selection;
  std::string selectedEncoder;
  std::string videoPipeline;
  std::string audioPipeline;
  std::string videoCaps;
  std::string audioCaps;
  std::string lastGstBusError;
  std::string lastOpenH264Error;
  std::vector<AudioSourceStats> audioSources;
  std::vector<ProviderProbeReport> providers;
  std::vector<BranchReport> branches;
  std::int64_t firstAudioVideoOffsetUs = 0;
  std::int64_t audioVideoDriftUs = 0;

  // What was read of a counter.
  [[nodiscard]] std::uint64_t Of(const Counter& counter) const noexcept;
};

// JavaScript thread. Takes, one at a time under the capture mutex, the
// statistics mutexes.
StatsSnapshot TakeStatsSnapshot() EXCLUDES(g_mutex);

BranchReport MakeBranchReport(const VideoBranchStats& stats, bool isHardware);

// First audio minus first video timestamp, 0 unless both were seen.
std::int64_t FirstAudioVideoOffsetUs(std::uint64_t firstAudioUs,
                                     std::uint64_t firstVideoUs);

// Audio span minus video span; a span is 0 unless both its ends were seen.
std::int64_t AudioVideoDriftUs(std::uint64_t firstAudioUs,
                               std::uint64_t lastAudioUs,
                               std::uint64_t firstVideoUs,
                               std::uint64_t lastVideoUs);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATS_STATS_SNAPSHOT_H_
