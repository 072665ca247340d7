#ifndef LINUX_CAPTURE_CONFIG_REQUESTED_BRANCHES_H_
#define LINUX_CAPTURE_CONFIG_REQUESTED_BRANCHES_H_

#include <cstdint>

#include "config/capture_config.h"

namespace linux_capture {

// The primary branch that the record's capture values ask for. Throws what
// ValidateVideoBranchConfig throws.
[[nodiscard]] VideoBranchConfig RequestedPrimaryBranch(
    const CaptureConfig& config);

// Completes a secondary branch of which the request gave the index, size, rate
// and bitrate: the bitrate is also its maximum, and its minimum is that of the
// whole capture as far as the branch can reach it. Throws what
// ValidateVideoBranchConfig throws.
[[nodiscard]] VideoBranchConfig RequestedSecondaryBranch(
    const VideoBranchConfig& given, std::int32_t captureMinBitrate);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_REQUESTED_BRANCHES_H_
