#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "config/branch_fitting.h"
#include "config/branch_normalisation.h"
#include "fuzz_input.h"

namespace {

using linux_capture::CaptureConfig;
using linux_capture::NormaliseBranchesToSource;
using linux_capture::ScaleBranchToFitSourceAspect;
using linux_capture::VideoBranchConfig;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeBranch;
using linux_capture::fuzz::TakeConfig;

void RequireEncodable(const VideoBranchConfig& branch) {
  Require(branch.width > 0 && branch.height > 0, "sizes are positive");
  Require(branch.width % 2 == 0 && branch.height % 2 == 0, "sizes are even");
  Require(branch.fps >= 1, "a branch has a rate");
  Require(branch.bitrate > 0 && branch.maxBitrate > 0, "a branch has bitrates");
}

void RequireRefusal(const std::string& message) {
  Require(message.rfind("video branch ", 0) == 0, "a refusal names the branch");
}

// Two pixels is the least that H.264 can encode.
bool IsWithin(std::int32_t size, std::int32_t limit) {
  return size <= std::max(limit, 2);
}

void FitOne(FuzzInput& input) {
  const VideoBranchConfig branch = TakeBranch(input);
  const std::int32_t sourceWidth = input.TakeInt();
  const std::int32_t sourceHeight = input.TakeInt();
  const auto divisor =
      static_cast<std::int32_t>(input.Take<std::uint8_t>() % 5);
  try {
    const VideoBranchConfig fitted = ScaleBranchToFitSourceAspect(
        branch, sourceWidth, sourceHeight, divisor);
    RequireEncodable(fitted);
    Require(fitted.fps == branch.fps && fitted.bitrate == branch.bitrate,
            "fitting changes the size alone");
    if (sourceWidth < 1 || sourceHeight < 1) {
      Require(fitted == branch, "an unknown source changes nothing");
      return;
    }
    Require(IsWithin(fitted.width, sourceWidth) &&
                IsWithin(fitted.height, sourceHeight),
            "a picture is never larger than its source");
    if (divisor <= 1) {
      Require(IsWithin(fitted.width, branch.width) &&
                  IsWithin(fitted.height, branch.height),
              "a picture is never larger than what was asked for");
    }
  } catch (const std::runtime_error& error) {
    RequireRefusal(error.what());
  }
}

void NormaliseAll(FuzzInput& input) {
  CaptureConfig config = TakeConfig(input);
  const CaptureConfig before = config;
  try {
    NormaliseBranchesToSource(config);
  } catch (const std::runtime_error& error) {
    RequireRefusal(error.what());
    return;
  }
  if (before.sourceWidth < 1 || before.sourceHeight < 1 ||
      before.branches.empty()) {
    Require(config == before, "without a source size nothing changes");
    return;
  }
  Require(!config.branches.empty() &&
              config.branches.size() <= before.branches.size(),
          "branches are only left out");
  const VideoBranchConfig& primary = config.branches.front();
  Require(primary.branchIndex == 0, "the first branch is the primary");
  Require(config.width == primary.width && config.height == primary.height,
          "the capture has the size of its primary");
  for (std::size_t i = 0; i < config.branches.size(); ++i) {
    const VideoBranchConfig& branch = config.branches[i];
    RequireEncodable(branch);
    if (i == 0) continue;
    const VideoBranchConfig& larger = config.branches[i - 1];
    Require(branch.width < larger.width && branch.height < larger.height &&
                branch.fps < larger.fps,
            "every branch is a lower step");
    Require(branch.branchIndex > larger.branchIndex, "the indexes rise");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  FitOne(input);
  NormaliseAll(input);
  return 0;
}
