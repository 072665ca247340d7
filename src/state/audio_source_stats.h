#ifndef LINUX_CAPTURE_STATE_AUDIO_SOURCE_STATS_H_
#define LINUX_CAPTURE_STATE_AUDIO_SOURCE_STATS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "base/capture_mutex.h"
#include "base/no_destroy.h"
#include "config/capture_config.h"

namespace linux_capture {

// What one PipeWire audio target delivered. Field names are the report's keys.
struct AudioSourceStats {
  std::uint64_t sourceIndex = 0;  // position in the target list
  AudioSourceMetadata metadata;
  std::uint64_t samplesCaptured = 0;
  std::uint64_t packetsCaptured = 0;
  std::uint64_t nonZeroSamplesCaptured = 0;
  std::uint64_t absoluteSampleSum = 0;
  std::uint32_t peakAbsoluteSample = 0;
  std::uint64_t clippedSamplesCaptured = 0;
  std::uint64_t silentPackets = 0;
  std::uint64_t consecutiveSilentPackets = 0;
  std::uint64_t maxConsecutiveSilentPackets = 0;
  std::uint64_t lastPacketAtMs = 0;
  std::uint64_t lastNonZeroAtMs = 0;
  std::uint64_t lastNonZeroSamples = 0;
  std::uint64_t lastAbsoluteSampleSum = 0;
  std::uint32_t lastPeakAbsoluteSample = 0;
  std::uint64_t lastClippedSamples = 0;
  std::string caps;
};

// May be taken under the capture mutex; never together with an encoder's
// mutex or g_capsMutex.
inline Mutex g_audioSourceStatsMutex ACQUIRED_AFTER(g_mutex);
inline NoDestroy<std::vector<AudioSourceStats>> g_audioSourceStats
    GUARDED_BY(g_audioSourceStatsMutex);

// Replaces the list by one zeroed entry per audio source of `config`.
void ResetAudioSourceStatsForConfig(const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_AUDIO_SOURCE_STATS_H_
