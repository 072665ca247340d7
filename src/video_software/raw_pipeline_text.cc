#include "video_software/raw_pipeline_text.h"

#include <cstdint>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

// The last pixel is inclusive. 64 bits hold every sum of two 32-bit numbers.
std::string LastPixel(std::int32_t start, std::int32_t extent) {
  return std::to_string(std::int64_t{start} + extent - 1);
}

std::string X11SourceText(const CaptureConfig& config) {
  constexpr const char* kTail =
      " do-timestamp=true use-damage=false show-pointer=true ! ";
  if (config.kind == "window") {
    if (config.windowHandle == 0) {
      throw CodedError(
          error_code::kInvalidRequest,
          "Linux x11 window video pipeline requires a positive window XID");
    }
    return "ximagesrc xid=" + std::to_string(config.windowHandle) + kTail;
  }
  if (config.kind == "monitor") {
    return "ximagesrc startx=" + std::to_string(config.x) +
           " starty=" + std::to_string(config.y) +
           " endx=" + LastPixel(config.x, config.sourceWidth) +
           " endy=" + LastPixel(config.y, config.sourceHeight) + kTail;
  }
  throw CodedError(
      error_code::kInvalidRequest,
      "Linux x11 video pipeline requires source.kind \"window\" or "
      "\"monitor\"");
}

std::string RawVideoSource(const CaptureConfig& config) {
  if (config.backend == "portal") {
    return "pipewiresrc fd=" + std::to_string(config.pipeWireFd) +
           " path=" + std::to_string(config.pipeWireNodeId) +
           " do-timestamp=true on-disconnect=2 ! ";
  }
  if (config.backend == "x11") return X11SourceText(config);
  throw CodedError(error_code::kInvalidRequest,
                   "unsupported Linux video source backend: " + config.backend);
}

std::string RawVideoBranch(const VideoBranchConfig& branch) {
  return "videoTee. ! "
         "queue max-size-buffers=4 leaky=downstream ! "
         "videoscale ! videorate ! "
         "video/x-raw,format=I420,width=" +
         std::to_string(branch.width) +
         ",height=" + std::to_string(branch.height) +
         ",framerate=" + std::to_string(branch.fps) +
         "/1 ! "
         "appsink name=videoSink" +
         std::to_string(branch.branchIndex) +
         " emit-signals=true sync=false max-buffers=4 drop=true ";
}

}  // namespace

std::string BuildOpenH264VideoPipeline(const CaptureConfig& config) {
  if (config.branches.empty()) {
    throw CodedError(error_code::kInvalidRequest,
                     "Linux video pipeline requires at least one video branch");
  }
  // Every queue and appsink drops its oldest frames: a slow encoder loses
  // pictures instead of holding up the capture.
  std::string text = RawVideoSource(config);
  text +=
      "queue max-size-buffers=4 leaky=downstream ! "
      "videoconvert ! "
      "video/x-raw,format=I420 ! "
      "tee name=videoTee ";
  for (const VideoBranchConfig& branch : config.branches) {
    text += RawVideoBranch(branch);
  }
  return text;
}

}  // namespace linux_capture
