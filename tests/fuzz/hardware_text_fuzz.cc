#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "video_hardware/encoder_profiles.h"
#include "video_hardware/hardware_pipeline_text.h"

namespace {

using linux_capture::CaptureConfig;
using linux_capture::GStreamerHardwareEncoderProfile;
using linux_capture::GStreamerHardwareEncoderProfiles;
using linux_capture::VideoBranchConfig;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::MatchesPattern;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeConfig;
using Numbers = std::vector<std::int64_t>;

std::string BranchPattern(const CaptureConfig& config,
                          const std::string& encoder) {
  const std::string cabac = config.enableCABAC ? "true" : "false";
  const std::string preset = config.lowLatencyMode ? "low-latency-hp" : "hq";
  const std::string latency = config.lowLatencyMode ? "true" : "false";
  return "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
         "videorate name=videoRate# drop-only=true max-rate=# ! "
         "video/x-raw(memory:GLMemory),framerate=#/1 ! glcolorscale ! "
         "video/x-raw(memory:GLMemory),format=RGBA,width=#,height=# ! "
         "glcolorconvert ! "
         "video/x-raw(memory:GLMemory),format=NV12,width=#,height=# ! " +
         encoder +
         " name=videoEncoder# bitrate=# max-bitrate=# gop-size=# bframes=# "
         "cabac=" +
         cabac + " preset=" + preset + " zerolatency=" + latency +
         " rc-mode=cbr strict-gop=true aud=true repeat-sequence-header=true ! "
         "video/x-h264,stream-format=byte-stream,alignment=au ! "
         "appsink name=videoSink# emit-signals=true sync=false max-buffers=4 "
         "drop=true ";
}

Numbers BranchNumbers(const CaptureConfig& config,
                      const VideoBranchConfig& branch) {
  const std::int64_t rate = std::max(branch.bitrate / 1000, 1);
  const std::int64_t peak =
      std::max<std::int64_t>(branch.maxBitrate / 1000, rate);
  return {branch.branchIndex,
          branch.fps,
          branch.fps,
          branch.width,
          branch.height,
          branch.width,
          branch.height,
          branch.branchIndex,
          rate,
          peak,
          std::max(config.gopSize, 1),
          config.bFrames,
          branch.branchIndex};
}

bool IsUsable(const CaptureConfig& config,
              const GStreamerHardwareEncoderProfile& profile) {
  return config.backend == "portal" && config.branches.size() == 3 &&
         profile.runnable;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  static const std::vector<GStreamerHardwareEncoderProfile> kProfiles =
      GStreamerHardwareEncoderProfiles();
  const GStreamerHardwareEncoderProfile& profile =
      kProfiles[input.Take<std::uint8_t>() % kProfiles.size()];
  const CaptureConfig config = TakeConfig(input);
  std::string text;
  try {
    text = linux_capture::BuildHardwareVideoPipeline(config, profile);
  } catch (const std::runtime_error&) {
    Require(!IsUsable(config, profile), "a usable configuration has a text");
    return 0;
  }
  Require(IsUsable(config, profile), "only a usable configuration has a text");
  std::string pattern =
      "pipewiresrc fd=# path=# always-copy=false use-bufferpool=true "
      "do-timestamp=true on-disconnect=2 ! video/x-raw(memory:DMABuf) ! "
      "glupload ! glcolorconvert ! tee name=videoTee ";
  Numbers expected = {config.pipeWireFd, config.pipeWireNodeId};
  for (const VideoBranchConfig& branch : config.branches) {
    pattern += BranchPattern(config, profile.elementFactory);
    const Numbers numbers = BranchNumbers(config, branch);
    expected.insert(expected.end(), numbers.begin(), numbers.end());
  }
  Numbers found;
  Require(MatchesPattern(text, pattern, found),
          "the text is its fixed words and numbers");
  Require(found == expected, "the numbers are those of the configuration");
  return 0;
}
