#ifndef LINUX_CAPTURE_CONFIG_BITRATE_LADDER_H_
#define LINUX_CAPTURE_CONFIG_BITRATE_LADDER_H_

#include <cstdint>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture {

// No hardware branch is ever given less, in bits per second.
inline constexpr std::int32_t kMinHardwareBranchBitrate = 100'000;

// Distributes bitrates over the fitted branches of a hardware capture: the
// primary (the first one) takes the rates of the requested branch that is
// nearest to it in size, every smaller branch a share that falls with its
// pixel rate. `requested` holds the branches before fitting, primary first.
// Does nothing when either list is empty.
void ApplyHardwareBitrateLadder(const std::vector<VideoBranchConfig>& requested,
                                std::vector<VideoBranchConfig>& fitted);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_BITRATE_LADDER_H_
