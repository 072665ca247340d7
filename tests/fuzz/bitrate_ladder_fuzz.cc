#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/bitrate_ladder.h"
#include "fuzz_input.h"

namespace {

using linux_capture::ApplyHardwareBitrateLadder;
using linux_capture::kMinHardwareBranchBitrate;
using linux_capture::VideoBranchConfig;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeBranch;
using Branches = std::vector<VideoBranchConfig>;

Branches TakeBranches(FuzzInput& input) {
  Branches branches(input.Take<std::uint8_t>() % 5U);
  for (VideoBranchConfig& branch : branches) branch = TakeBranch(input);
  return branches;
}

std::int32_t HighestRate(const Branches& branches) {
  std::int32_t highest = kMinHardwareBranchBitrate;
  for (const VideoBranchConfig& branch : branches) {
    highest = std::max({highest, branch.bitrate, branch.maxBitrate});
  }
  return highest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const Branches requested = TakeBranches(input);
  const Branches before = TakeBranches(input);
  Branches fitted = before;
  ApplyHardwareBitrateLadder(requested, fitted);
  if (requested.empty() || before.empty()) {
    Require(fitted == before, "an empty list changes nothing");
    return 0;
  }
  Require(fitted.size() == before.size(), "no branch comes or goes");
  const std::int32_t highest = HighestRate(requested);
  for (std::size_t i = 0; i < fitted.size(); ++i) {
    VideoBranchConfig branch = fitted[i];
    Require(
        branch.bitrate >= kMinHardwareBranchBitrate && branch.minBitrate > 0,
        "no branch starves");
    Require(branch.maxBitrate >= branch.bitrate, "the rates are in order");
    Require(branch.maxBitrate <= highest && branch.minBitrate <= highest,
            "no rate exceeds what was asked for");
    Require(branch.bitrate <= fitted.front().bitrate,
            "no branch has more than the primary");
    branch.bitrate = before[i].bitrate;
    branch.minBitrate = before[i].minBitrate;
    branch.maxBitrate = before[i].maxBitrate;
    Require(branch == before[i], "only the rates change");
  }
  return 0;
}
