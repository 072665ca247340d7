#ifndef LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_
#define LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_

#include <wels/codec_api.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

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

// One branch's encoder. `mutex` guards the rest of the record. It is held by
// the streaming thread for a whole frame, hand-off included, so a callback
// queue's mutex and g_hardwareStatsMutex are taken under it; it may be taken
// under the capture mutex.
struct OpenH264BranchEncoder {
  VideoBranchConfig branch;
  OpenH264EncoderPtr encoder;
  std::mutex mutex;
  VideoBranchStats stats;
};

// The list itself changes only while no pipeline delivers frames (before the
// launch, after the stop), under the capture mutex.
inline NoDestroy<std::vector<std::unique_ptr<OpenH264BranchEncoder>>>
    g_openH264Branches;

// Waits for frames being encoded, then frees every encoder.
void DestroyOpenH264Branches();

// The first record with that branch index, or null.
OpenH264BranchEncoder* FindOpenH264Branch(std::int32_t branchIndex);

// Zeroes every branch's statistics, applied bitrates included.
void ResetOpenH264BranchStats();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_OPENH264_ENCODERS_H_
