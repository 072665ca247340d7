#ifndef LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_
#define LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_

#include <wels/codec_api.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/capture_mutex.h"
#include "base/no_destroy.h"
#include "config/capture_config.h"
#include "state/branch_stats.h"

namespace linux_capture {

struct OpenH264EncoderDeleter {
  void operator()(ISVCEncoder* encoder) const noexcept {
    WelsDestroySVCEncoder(encoder);
  }
};
// Destroys the encoder; an initialised one must be uninitialised first.
using OpenH264EncoderPtr = std::unique_ptr<ISVCEncoder, OpenH264EncoderDeleter>;

// One branch's encoder. `mutex` guards what changes. It is held by
// the streaming thread for a whole frame, hand-off included, so a callback
// queue's mutex and g_hardwareStatsMutex are taken under it; it may be taken
// under the capture mutex.
struct OpenH264BranchEncoder {
  explicit OpenH264BranchEncoder(const VideoBranchConfig& config = {},
                                 OpenH264EncoderPtr initialised = nullptr)
      : branch(config),
        encoder(std::move(initialised)),
        stats(ZeroedBranchStats(config)) {}

  const VideoBranchConfig branch;
  Mutex mutex ACQUIRED_AFTER(g_mutex) ACQUIRED_BEFORE(g_hardwareStatsMutex);
  OpenH264EncoderPtr encoder GUARDED_BY(mutex);
  VideoBranchStats stats GUARDED_BY(mutex);
};

// The list itself changes only while no pipeline delivers frames (before the
// launch, after the stop), under the capture mutex.
inline NoDestroy<std::vector<std::unique_ptr<OpenH264BranchEncoder>>>
    g_openH264Branches GUARDED_BY(g_mutex);

// Waits for frames being encoded, then frees every encoder.
void DestroyOpenH264Branches() REQUIRES(g_mutex);

// The first record with that branch index, or null. Streaming threads may ask
// too: none of them runs while the list changes.
OpenH264BranchEncoder* FindOpenH264Branch(std::int32_t branchIndex)
    NO_THREAD_SAFETY_ANALYSIS;

// Holds the mutexes of all encoders, so that no branch is in the middle of a
// frame: what is counted by branch and in total agrees. No branch waits for the
// frame of another one, unless they never have a moment in common.
class OpenH264Pause {
 public:
  OpenH264Pause() REQUIRES(g_mutex);
  OpenH264Pause(const OpenH264Pause&) = delete;
  OpenH264Pause& operator=(const OpenH264Pause&) = delete;
  ~OpenH264Pause() REQUIRES(g_mutex);

  // The statistics of every branch, in the order of the list.
  [[nodiscard]] std::vector<VideoBranchStats> Stats() const REQUIRES(g_mutex);
  // Zeroes them, applied bitrates included.
  void ResetStats() REQUIRES(g_mutex);
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_
