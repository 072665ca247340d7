#include "video_hardware/hardware_pipeline_text.h"

#include <gtest/gtest.h>

#include <string>

#include "support/capture_fixture.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

GStreamerHardwareEncoderProfile Nvenc() {
  return GStreamerHardwareEncoderProfiles()[0];
}

std::string Segment(const CaptureConfig& config) {
  return BuildHardwareEncoderPropertySegment(config.branches[0], config,
                                             Nvenc());
}

constexpr const char* kFirstBranch =
    "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
    "videorate name=videoRate0 drop-only=true max-rate=30 ! "
    "video/x-raw(memory:GLMemory),framerate=30/1 ! glcolorscale ! "
    "video/x-raw(memory:GLMemory),format=RGBA,width=1280,height=720 ! "
    "glcolorconvert ! "
    "video/x-raw(memory:GLMemory),format=NV12,width=1280,height=720 ! "
    "nvh264enc name=videoEncoder0 bitrate=2500 max-bitrate=3000 gop-size=60 "
    "bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr "
    "strict-gop=true aud=true repeat-sequence-header=true ! "
    "video/x-h264,stream-format=byte-stream,alignment=au ! "
    "appsink name=videoSink0 emit-signals=true sync=false max-buffers=4 "
    "drop=true ";

TEST(HardwarePipelineTextTest, TheWholeTextIsTheDocumentedOne) {
  const std::string branch1 =
      "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
      "videorate name=videoRate1 drop-only=true max-rate=15 ! "
      "video/x-raw(memory:GLMemory),framerate=15/1 ! glcolorscale ! "
      "video/x-raw(memory:GLMemory),format=RGBA,width=640,height=360 ! "
      "glcolorconvert ! "
      "video/x-raw(memory:GLMemory),format=NV12,width=640,height=360 ! "
      "nvh264enc name=videoEncoder1 bitrate=1500 max-bitrate=2000 gop-size=60 "
      "bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr "
      "strict-gop=true aud=true repeat-sequence-header=true ! "
      "video/x-h264,stream-format=byte-stream,alignment=au ! "
      "appsink name=videoSink1 emit-signals=true sync=false max-buffers=4 "
      "drop=true ";
  const std::string branch2 =
      "videoTee. ! queue max-size-buffers=4 leaky=downstream ! "
      "videorate name=videoRate2 drop-only=true max-rate=7 ! "
      "video/x-raw(memory:GLMemory),framerate=7/1 ! glcolorscale ! "
      "video/x-raw(memory:GLMemory),format=RGBA,width=320,height=180 ! "
      "glcolorconvert ! "
      "video/x-raw(memory:GLMemory),format=NV12,width=320,height=180 ! "
      "nvh264enc name=videoEncoder2 bitrate=500 max-bitrate=600 gop-size=60 "
      "bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr "
      "strict-gop=true aud=true repeat-sequence-header=true ! "
      "video/x-h264,stream-format=byte-stream,alignment=au ! "
      "appsink name=videoSink2 emit-signals=true sync=false max-buffers=4 "
      "drop=true ";
  EXPECT_EQ(BuildHardwareVideoPipeline(MakeThreeBranchConfig(), Nvenc()),
            "pipewiresrc fd=42 path=77 always-copy=false use-bufferpool=true "
            "do-timestamp=true on-disconnect=2 ! "
            "video/x-raw(memory:DMABuf) ! glupload ! glcolorconvert ! "
            "tee name=videoTee " +
                std::string(kFirstBranch) + branch1 + branch2);
}

TEST(HardwarePipelineTextTest, TheDescriptorIsSignedAndTheNodeUnsigned) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.pipeWireFd = -1;
  config.pipeWireNodeId = 4'294'967'295U;
  EXPECT_EQ(BuildHardwareVideoPipeline(config, Nvenc())
                .rfind("pipewiresrc fd=-1 path=4294967295 always-copy=", 0),
            0U);
}

TEST(HardwarePipelineTextTest, AnotherProfileNamesItsElement) {
  const std::string text = BuildHardwareVideoPipeline(
      MakeThreeBranchConfig(), GStreamerHardwareEncoderProfiles()[1]);
  EXPECT_NE(text.find(" ! nvautogpuh264enc name=videoEncoder2 bitrate=500 "),
            std::string::npos);
  EXPECT_EQ(text.find(" nvh264enc "), std::string::npos);
}

TEST(HardwarePipelineTextTest, OnlyPortalSourcesAreAccepted) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.backend = "x11";
  config.branches.clear();  // the source is judged first
  EXPECT_EQ(MessageOf([&] { BuildHardwareVideoPipeline(config, Nvenc()); }),
            "Linux hardware simulcast FPS parity requires Wayland portal "
            "PipeWire capture");
}

TEST(HardwarePipelineTextTest, ExactlyThreeBranchesAreAccepted) {
  const GStreamerHardwareEncoderProfile unusable;  // judged after the count
  CaptureConfig two = MakeThreeBranchConfig();
  two.branches.pop_back();
  CaptureConfig four = MakeThreeBranchConfig();
  four.branches.push_back(four.branches.back());
  for (const CaptureConfig& config : {two, four}) {
    EXPECT_EQ(MessageOf([&] { BuildHardwareVideoPipeline(config, unusable); }),
              "Linux hardware simulcast FPS parity requires exactly three "
              "spatial branches");
  }
}

TEST(HardwarePipelineTextTest, OnlyRunnableProfilesAreAccepted) {
  EXPECT_EQ(MessageOf([] {
              BuildHardwareVideoPipeline(MakeThreeBranchConfig(),
                                         GStreamerHardwareEncoderProfiles()[3]);
            }),
            "Linux hardware simulcast FPS parity requires a runnable GStreamer "
            "hardware profile");
}

TEST(HardwareEncoderPropertiesTest, RatesAreInTheProfilesUnits) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.branches[0].bitrate = 2'999;
  config.branches[0].maxBitrate = 5'999;
  EXPECT_EQ(Segment(config).rfind(" bitrate=2 max-bitrate=5 ", 0), 0U);
}

TEST(HardwareEncoderPropertiesTest, ARateBelowOneUnitBecomesOne) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.branches[0].bitrate = 999;
  config.branches[0].maxBitrate = 0;
  EXPECT_EQ(Segment(config).rfind(" bitrate=1 max-bitrate=1 ", 0), 0U);
}

TEST(HardwareEncoderPropertiesTest, APeakBelowTheRateBecomesTheRate) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.branches[0].bitrate = 3'000'000;
  config.branches[0].maxBitrate = 2'000'000;
  EXPECT_EQ(Segment(config).rfind(" bitrate=3000 max-bitrate=3000 ", 0), 0U);
}

TEST(HardwareEncoderPropertiesTest, TheGopIsAtLeastOne) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.gopSize = 0;
  EXPECT_NE(Segment(config).find(" gop-size=1 bframes="), std::string::npos);
}

TEST(HardwareEncoderPropertiesTest, SwitchesFollowTheRequest) {
  CaptureConfig config = MakeThreeBranchConfig();
  config.lowLatencyMode = false;
  config.enableCABAC = false;
  config.bFrames = 16;
  EXPECT_EQ(Segment(config),
            " bitrate=2500 max-bitrate=3000 gop-size=60 bframes=16 cabac=false "
            "preset=hq zerolatency=false rc-mode=cbr strict-gop=true aud=true "
            "repeat-sequence-header=true");
}

TEST(HardwareEncoderPropertiesTest, EveryMappingIsRequired) {
  constexpr const char* kMessage =
      "runnable GStreamer hardware profile is missing encoder property mapping";
  using Profile = GStreamerHardwareEncoderProfile;
  const CaptureConfig config = MakeThreeBranchConfig();
  const auto messageFor = [&](const Profile& profile) {
    return MessageOf([&] {
      BuildHardwareEncoderPropertySegment(config.branches[0], config, profile);
    });
  };
  for (std::string Profile::*property :
       {&Profile::bitrateProperty, &Profile::maxBitrateProperty,
        &Profile::gopSizeProperty, &Profile::bFramesProperty,
        &Profile::cabacProperty, &Profile::presetProperty,
        &Profile::zeroLatencyProperty}) {
    Profile profile = Nvenc();
    (profile.*property).clear();
    EXPECT_EQ(messageFor(profile), kMessage);
  }
  Profile profile = Nvenc();
  profile.bitrateDivisor = 0;
  EXPECT_EQ(messageFor(profile), kMessage);
  for (std::size_t row = 2; row < 5; ++row) {
    EXPECT_EQ(messageFor(GStreamerHardwareEncoderProfiles()[row]), kMessage);
  }
}

TEST(HardwareEncoderPropertiesTest, PresetsAndExtrasMayBeEmpty) {
  CaptureConfig config = MakeThreeBranchConfig();
  GStreamerHardwareEncoderProfile profile = Nvenc();
  profile.lowLatencyPreset.clear();
  profile.extraProperties.clear();
  EXPECT_EQ(
      BuildHardwareEncoderPropertySegment(config.branches[0], config, profile),
      " bitrate=2500 max-bitrate=3000 gop-size=60 bframes=0 cabac=true "
      "preset= zerolatency=true");
}

}  // namespace
}  // namespace linux_capture
