#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "video_software/raw_pipeline_text.h"

namespace {

using linux_capture::CaptureConfig;
using linux_capture::VideoBranchConfig;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::MatchesPattern;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeConfig;
using Numbers = std::vector<std::int64_t>;

// The fixed words of the text, and the numbers that belong into it.
std::string Expected(const CaptureConfig& config, Numbers& numbers) {
  std::string pattern;
  if (config.backend == "portal") {
    pattern = "pipewiresrc fd=# path=# do-timestamp=true on-disconnect=2 ! ";
    numbers = {config.pipeWireFd, config.pipeWireNodeId};
  } else if (config.kind == "window") {
    pattern =
        "ximagesrc xid=# do-timestamp=true use-damage=false "
        "show-pointer=true ! ";
    numbers = {static_cast<std::int64_t>(config.windowHandle)};
  } else {
    pattern =
        "ximagesrc startx=# starty=# endx=# endy=# do-timestamp=true "
        "use-damage=false show-pointer=true ! ";
    numbers = {config.x, config.y,
               std::int64_t{config.x} + config.sourceWidth - 1,
               std::int64_t{config.y} + config.sourceHeight - 1};
  }
  pattern +=
      "queue max-size-buffers=4 leaky=downstream ! videoconvert ! "
      "video/x-raw,format=I420 ! tee name=videoTee ";
  for (const VideoBranchConfig& branch : config.branches) {
    pattern +=
        "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
        "videoscale ! videorate ! "
        "video/x-raw,format=I420,width=#,height=#,framerate=#/1 ! "
        "appsink name=videoSink# emit-signals=true sync=false "
        "max-buffers=4 drop=true ";
    numbers.insert(numbers.end(), {branch.width, branch.height, branch.fps,
                                   branch.branchIndex});
  }
  return pattern;
}

bool IsUsable(const CaptureConfig& config) {
  if (config.branches.empty()) return false;
  if (config.backend == "portal") return true;
  return config.backend == "x11" &&
         (config.kind == "monitor" ||
          (config.kind == "window" && config.windowHandle != 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const CaptureConfig config = TakeConfig(input);
  std::string text;
  try {
    text = linux_capture::BuildOpenH264VideoPipeline(config);
  } catch (const std::runtime_error&) {
    Require(!IsUsable(config), "a usable configuration has a text");
    return 0;
  }
  Require(IsUsable(config), "only a usable configuration has a text");
  Numbers expected;
  Numbers found;
  const std::string pattern = Expected(config, expected);
  Require(MatchesPattern(text, pattern, found),
          "the text is its fixed words and numbers");
  Require(found == expected, "the numbers are those of the configuration");
  return 0;
}
