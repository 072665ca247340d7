#include "video_software/raw_pipeline_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "support/capture_fixture.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

constexpr const char* kX11Tail =
    " do-timestamp=true use-damage=false show-pointer=true ! ";
constexpr const char* kHead =
    "queue max-size-buffers=4 leaky=downstream ! videoconvert ! "
    "video/x-raw,format=I420 ! tee name=videoTee ";

CaptureConfig Portal() {
  CaptureConfig config;
  config.backend = "portal";
  config.pipeWireFd = 42;
  config.pipeWireNodeId = 77;
  config.branches = {MakeBranch(0, 1280, 720, 30, 1, 1)};
  return config;
}

CaptureConfig Monitor(std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height) {
  CaptureConfig config = Portal();
  config.backend = "x11";
  config.kind = "monitor";
  config.x = x;
  config.y = y;
  config.sourceWidth = width;
  config.sourceHeight = height;
  return config;
}

std::string SourceOf(const CaptureConfig& config) {
  const std::string text = BuildOpenH264VideoPipeline(config);
  const std::size_t head = text.find(kHead);
  EXPECT_NE(head, std::string::npos) << text;
  return text.substr(0, head);
}

TEST(RawPipelineTextTest, APortalStreamWithOneBranch) {
  EXPECT_EQ(
      BuildOpenH264VideoPipeline(Portal()),
      "pipewiresrc fd=42 path=77 do-timestamp=true on-disconnect=2 ! "
      "queue max-size-buffers=4 leaky=downstream ! videoconvert ! "
      "video/x-raw,format=I420 ! tee name=videoTee videoTee. ! "
      "queue max-size-buffers=4 leaky=downstream ! videoscale ! videorate ! "
      "video/x-raw,format=I420,width=1280,height=720,framerate=30/1 ! "
      "appsink name=videoSink0 emit-signals=true sync=false max-buffers=4 "
      "drop=true ");
}

TEST(RawPipelineTextTest, EveryBranchIsNamedByItsOwnIndex) {
  CaptureConfig config = Portal();
  config.branches = {MakeBranch(2, 640, 360, 15, 1, 1),
                     MakeBranch(1, 320, 180, 7, 1, 1)};
  const std::string text = BuildOpenH264VideoPipeline(config);
  EXPECT_EQ(text.substr(text.find("videoTee. ! ")),
            "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
            "videoscale ! videorate ! "
            "video/x-raw,format=I420,width=640,height=360,framerate=15/1 ! "
            "appsink name=videoSink2 emit-signals=true sync=false "
            "max-buffers=4 drop=true "
            "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
            "videoscale ! videorate ! "
            "video/x-raw,format=I420,width=320,height=180,framerate=7/1 ! "
            "appsink name=videoSink1 emit-signals=true sync=false "
            "max-buffers=4 drop=true ");
}

TEST(RawPipelineTextTest, TheDescriptorIsSignedAndTheNodeUnsigned) {
  CaptureConfig config = Portal();
  config.pipeWireFd = -1;
  config.pipeWireNodeId = 4'294'967'295U;
  EXPECT_EQ(SourceOf(config),
            "pipewiresrc fd=-1 path=4294967295 do-timestamp=true "
            "on-disconnect=2 ! ");
}

TEST(RawPipelineTextTest, AWindowIsNamedByItsId) {
  CaptureConfig config = Portal();
  config.backend = "x11";
  config.kind = "window";
  config.windowHandle = 18'446'744'073'709'551'615ULL;
  EXPECT_EQ(SourceOf(config),
            "ximagesrc xid=18446744073709551615" + std::string(kX11Tail));
}

TEST(RawPipelineTextTest, AMonitorsLastPixelIsInclusive) {
  EXPECT_EQ(SourceOf(Monitor(100, 50, 1920, 1080)),
            "ximagesrc startx=100 starty=50 endx=2019 endy=1129" +
                std::string(kX11Tail));
  EXPECT_EQ(
      SourceOf(Monitor(-1920, 0, 1920, 1)),
      "ximagesrc startx=-1920 starty=0 endx=-1 endy=0" + std::string(kX11Tail));
}

TEST(RawPipelineTextTest, AMonitorsLastPixelDoesNotOverflow) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(SourceOf(Monitor(kMost, kLeast, kMost, kLeast)),
            "ximagesrc startx=2147483647 starty=-2147483648 endx=4294967293 "
            "endy=-4294967297" +
                std::string(kX11Tail));
}

TEST(RawPipelineTextTest, AMissingBranchIsReportedBeforeTheSource) {
  CaptureConfig config = Portal();
  config.branches.clear();
  config.backend = "wayland";
  EXPECT_EQ(MessageOf([&] { BuildOpenH264VideoPipeline(config); }),
            "Linux video pipeline requires at least one video branch");
}

TEST(RawPipelineTextTest, AnUnknownBackendIsNamed) {
  CaptureConfig config = Portal();
  config.backend = "wayland";
  config.kind = "neither";
  EXPECT_EQ(MessageOf([&] { BuildOpenH264VideoPipeline(config); }),
            "unsupported Linux video source backend: wayland");
}

TEST(RawPipelineTextTest, AWindowNeedsAnId) {
  CaptureConfig config = Portal();
  config.backend = "x11";
  config.kind = "window";
  EXPECT_EQ(MessageOf([&] { BuildOpenH264VideoPipeline(config); }),
            "Linux x11 window video pipeline requires a positive window XID");
}

TEST(RawPipelineTextTest, AnX11SourceIsAWindowOrAMonitor) {
  CaptureConfig config = Portal();
  config.backend = "x11";
  config.kind = "region";
  EXPECT_EQ(MessageOf([&] { BuildOpenH264VideoPipeline(config); }),
            "Linux x11 video pipeline requires source.kind \"window\" or "
            "\"monitor\"");
}

}  // namespace
}  // namespace linux_capture
