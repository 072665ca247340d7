// The bare encoder: feeds pictures of the benchmark's scene to OpenH264 with
// the module's own parameters and tells what the encoding alone costs. Nothing
// that makes the pictures is counted.
//
// Writes one line of JSON; the stream goes to --stream FILE when that is given.

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <ios>
#include <stdexcept>
#include <string>
#include <vector>

#include "arguments.h"
#include "canvas.h"
#include "i420.h"
#include "scene_picture.h"
#include "state/openh264_encoders.h"
#include "video_software/access_unit.h"
#include "video_software/openh264_branches.h"

namespace linux_capture::bench {
namespace {

constexpr const char* kUsage =
    "usage: bench_encoder --size WIDTHxHEIGHT --to WIDTHxHEIGHT --fps N\n"
    "         --bitrate N --max-bitrate N --layers N --pictures N\n"
    "         --scene KIND --scene-hz N [--stream FILE]\n";

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) +
         static_cast<double>(time.tv_nsec) * 1e-9;
}

VideoBranchConfig BranchOf(const Arguments& arguments) {
  constexpr std::int64_t kMost = 2'000'000'000;
  const Size size = arguments.SizeOf("--to");
  VideoBranchConfig branch;
  branch.width = size.width;
  branch.height = size.height;
  branch.fps = static_cast<std::int32_t>(arguments.Number("--fps", 1, 1000));
  branch.bitrate =
      static_cast<std::int32_t>(arguments.Number("--bitrate", 1, kMost));
  branch.maxBitrate =
      static_cast<std::int32_t>(arguments.Number("--max-bitrate", 1, kMost));
  return branch;
}

SSourcePicture PictureOf(I420Picture& planes, std::int64_t timeMs) {
  SSourcePicture picture{};
  picture.iColorFormat = videoFormatI420;
  picture.iStride[0] = planes.width;
  picture.iStride[1] = planes.width / 2;
  picture.iStride[2] = planes.width / 2;
  picture.pData[0] = planes.y.data();
  picture.pData[1] = planes.u.data();
  picture.pData[2] = planes.v.data();
  picture.iPicWidth = planes.width;
  picture.iPicHeight = planes.height;
  picture.uiTimeStamp = timeMs;
  return picture;
}

// What the encoder was given and what it made of it.
struct Outcome {
  double seconds = 0;
  std::uint64_t bytes = 0;
  std::uint64_t pictures = 0;
};

Outcome Encode(const Arguments& arguments, const VideoBranchConfig& branch,
               OpenH264BranchEncoder& record) {
  const Size size = arguments.SizeOf("--size");
  const ScenePicture scene(size.width, size.height,
                           SceneKindOf(arguments.Text("--scene")));
  const std::int64_t sceneRate = arguments.Number("--scene-hz", 1, 1000);
  const std::int64_t count = arguments.Number("--pictures", 1, 1'000'000);
  std::ofstream stream;
  if (arguments.Has("--stream")) {
    stream.open(arguments.Text("--stream"), std::ios::binary);
    if (!stream) throw std::runtime_error("the stream cannot be written");
  }
  const ColourCode code = ColourCodeOf("bt709", "full");
  Canvas canvas(size.width, size.height);
  Outcome outcome;
  for (std::int64_t position = 0; position < count; ++position) {
    // The picture that a capture at this rate would find on the screen.
    const std::int64_t number = position * sceneRate / branch.fps;
    DrawSteps(scene.Steps(static_cast<std::uint32_t>(number), std::nullopt),
              canvas);
    I420Picture planes =
        ConvertToI420(canvas, branch.width, branch.height, code);
    const SSourcePicture picture =
        PictureOf(planes, position * 1000 / branch.fps);
    SFrameBSInfo info{};
    const double begin = ThreadSeconds();
    const int result = record.encoder->EncodeFrame(&picture, &info);
    outcome.seconds += ThreadSeconds() - begin;
    if (result != 0) throw std::runtime_error("the encoder failed");
    const AccessUnitSummary summary = SummariseAccessUnit(info);
    if (info.eFrameType == videoFrameTypeSkip || summary.size == 0) continue;
    ++outcome.pictures;
    outcome.bytes += summary.size;
    const std::vector<std::uint8_t> unit = JoinAccessUnit(info, summary.size);
    if (!stream.is_open()) continue;
    stream.write(reinterpret_cast<const char*>(unit.data()),
                 static_cast<std::streamsize>(unit.size()));
  }
  if (stream.is_open()) stream.flush();
  if (!stream) throw std::runtime_error("the stream cannot be written");
  return outcome;
}

void Run(const Arguments& arguments) {
  const VideoBranchConfig branch = BranchOf(arguments);
  InitializeOpenH264Branch(
      branch, static_cast<std::int32_t>(arguments.Number("--layers", 1, 3)));
  const Outcome outcome =
      Encode(arguments, branch, *g_openH264Branches->front());
  DestroyOpenH264Branches();
  std::printf("{\"seconds\":%.6f,\"bytes\":%llu,\"pictures\":%llu}\n",
              outcome.seconds, static_cast<unsigned long long>(outcome.bytes),
              static_cast<unsigned long long>(outcome.pictures));
}

}  // namespace
}  // namespace linux_capture::bench

int main(int argc, char** argv) {
  using namespace linux_capture::bench;
  try {
    Run(Arguments(argc, argv));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_encoder: %s\n%s", error.what(), kUsage);
    return 1;
  }
}
