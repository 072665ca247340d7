#include "launch_boundary/branch_size_check.h"

#include <cstdint>
#include <string>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

constexpr std::int32_t kLeastEncodedEdge = 16;

}  // namespace

void RequireEncodableBranches(const CaptureConfig& config) {
  for (const VideoBranchConfig& branch : config.branches) {
    if (branch.width >= kLeastEncodedEdge &&
        branch.height >= kLeastEncodedEdge) {
      continue;
    }
    throw CodedError(error_code::kInvalidRequest,
                     "video branch " + std::to_string(branch.branchIndex) +
                         " of " + std::to_string(branch.width) + "x" +
                         std::to_string(branch.height) +
                         " is smaller than 16x16, the least that OpenH264 "
                         "encodes");
  }
}

}  // namespace linux_capture
