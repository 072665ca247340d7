#ifndef LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_CONTROL_H_
#define LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_CONTROL_H_

#include <gst/gst.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/capture_mutex.h"

namespace linux_capture {

struct AppliedBranchBitrate {
  std::int32_t branchIndex = 0;
  std::uint32_t bitrate = 0;       // bits per second
  std::uint32_t bitrateUnits = 0;  // as written to the encoder
};

struct AppliedBitrate {
  std::uint32_t requestedBitrate = 0;  // after the clamp, bits per second
  std::vector<AppliedBranchBitrate> branchBitrates;
};

// Splits a total over the running hardware encoders and writes each one's
// share. Throws CodedError without a hardware capture or when an
// encoder cannot be set; branches set before that keep their new rate.
// JavaScript thread.
AppliedBitrate SetTotalBitrate(double bitsPerSecond) EXCLUDES(g_mutex);

// Sets a 32- or 64-bit integer property without checking its declared range.
// On failure returns false and explains in `errorText`.
bool SetGstIntegerProperty(GstElement* element, const std::string& property,
                           std::uint32_t value, std::string& errorText);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_HARDWARE_BITRATE_CONTROL_H_
