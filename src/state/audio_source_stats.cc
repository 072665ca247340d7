#include "state/audio_source_stats.h"

#include <utility>

namespace linux_capture {

void ResetAudioSourceStatsForConfig(const CaptureConfig& config) {
  std::vector<AudioSourceStats> fresh;
  fresh.reserve(config.audioSources.size());
  for (std::size_t i = 0; i < config.audioSources.size(); ++i) {
    AudioSourceStats stats;
    stats.sourceIndex = i;
    stats.metadata = config.audioSources[i];
    if (stats.metadata.pipeWireTargetObject == 0 &&
        i < config.pipeWireTargetObjects.size()) {
      stats.metadata.pipeWireTargetObject = config.pipeWireTargetObjects[i];
    }
    fresh.push_back(std::move(stats));
  }
  const MutexLock lock(g_audioSourceStatsMutex);
  *g_audioSourceStats = std::move(fresh);
}

}  // namespace linux_capture
