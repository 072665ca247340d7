#ifndef LINUX_CAPTURE_CONFIG_BRANCH_FITTING_H_
#define LINUX_CAPTURE_CONFIG_BRANCH_FITTING_H_

#include <cstdint>

#include "config/capture_config.h"

namespace linux_capture {

// Throws CodedError on the first value that cannot be encoded.
void ValidateVideoBranchConfig(const VideoBranchConfig& branch);

// The branch with the largest even size that has the source's aspect ratio and
// fits both the branch's own size and the source. With a divisor above 1 a
// size that would not come out strictly smaller than the source in both
// directions is replaced by the source size divided by it. A source size below
// 1 is unknown and leaves the branch's size alone. Throws what
// ValidateVideoBranchConfig throws on the result.
[[nodiscard]] VideoBranchConfig ScaleBranchToFitSourceAspect(
    const VideoBranchConfig& branch, std::int32_t sourceWidth,
    std::int32_t sourceHeight, std::int32_t divisor);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_BRANCH_FITTING_H_
