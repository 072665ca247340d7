#include "config/branch_fitting.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

// H.264 with 4:2:0 chroma needs even sizes. A value that is not finite becomes
// 0, which no encoder takes, so that validation refuses it.
std::int32_t EvenFloor(double value) {
  if (!std::isfinite(value)) return 0;
  // Converting a double that does not fit an integer is undefined.
  constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
  const auto whole = static_cast<std::int32_t>(
      std::clamp(std::floor(value), kLowest, kHighest));
  return std::max<std::int32_t>(whole & ~1, 2);
}

}  // namespace

void ValidateVideoBranchConfig(const VideoBranchConfig& branch) {
  const auto refuse = [&branch](const char* reason) {
    // The index is an identifier and is printed without a sign.
    throw CodedError(
        error_code::kInvalidRequest,
        "video branch " +
            std::to_string(static_cast<std::uint32_t>(branch.branchIndex)) +
            reason);
  };
  if (branch.width <= 0 || branch.height <= 0) {
    refuse(" requires positive width and height");
  }
  if (branch.width % 2 != 0 || branch.height % 2 != 0) {
    refuse(" requires even width and height for H.264");
  }
  if (branch.fps < 1) refuse(" requires positive fps");
  if (branch.bitrate <= 0 || branch.maxBitrate <= 0) {
    refuse(" requires positive bitrate and maxBitrate");
  }
}

VideoBranchConfig ScaleBranchToFitSourceAspect(const VideoBranchConfig& branch,
                                               std::int32_t sourceWidth,
                                               std::int32_t sourceHeight,
                                               std::int32_t divisor) {
  VideoBranchConfig fitted = branch;
  if (sourceWidth >= 1 && sourceHeight >= 1) {
    const double exactWidth = sourceWidth;
    const double exactHeight = sourceHeight;
    const double scale =
        std::min({1.0, branch.width / exactWidth, branch.height / exactHeight});
    fitted.width = EvenFloor(exactWidth * scale);
    fitted.height = EvenFloor(exactHeight * scale);
    const bool isSmaller =
        sourceHeight > fitted.height && sourceWidth > fitted.width;
    if (divisor > 1 && !isSmaller) {
      fitted.width = EvenFloor(exactWidth / divisor);
      fitted.height = EvenFloor(exactHeight / divisor);
    }
  }
  ValidateVideoBranchConfig(fitted);
  return fitted;
}

}  // namespace linux_capture
