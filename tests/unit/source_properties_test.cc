#include "launch_boundary/source_properties.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "audio/audio_pipeline_text.h"
#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"
#include "support/capture_fixture.h"
#include "video_hardware/hardware_pipeline_text.h"
#include "video_software/raw_pipeline_text.h"

namespace linux_capture {
namespace {

bool SupportsNothing(std::string_view /*property*/) { return false; }
bool SupportsEverything(std::string_view /*property*/) { return true; }

using Names = std::vector<std::string>;

TEST(OmittedPropertiesTest, ASupportedPropertyStays) {
  Names omitted;
  const std::string text = BuildHardwareVideoPipeline(
      MakeThreeBranchConfig(), GStreamerHardwareEncoderProfiles()[0]);
  EXPECT_EQ(OmitSourceProperties(text, SupportsEverything, omitted), text);
  EXPECT_TRUE(omitted.empty());
}

TEST(OmittedPropertiesTest, AnUnsupportedPropertyIsLeftOutAlone) {
  Names omitted;
  EXPECT_EQ(OmitSourceProperties(
                "pipewiresrc fd=3 path=4 always-copy=false use-bufferpool=true "
                "do-timestamp=true on-disconnect=2 ! fakesink",
                [](std::string_view name) { return name != "use-bufferpool"; },
                omitted),
            "pipewiresrc fd=3 path=4 always-copy=false do-timestamp=true "
            "on-disconnect=2 ! fakesink");
  EXPECT_EQ(omitted, Names{"use-bufferpool"});
}

TEST(OmittedPropertiesTest, WhatTheInstalledElementHasStays) {
  const GstElementPtr source = AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("pipewiresrc", nullptr))));
  const std::string text = OmitUnsupportedSourceProperties(
      "pipewiresrc fd=3 always-copy=false use-bufferpool=true on-disconnect=2 "
      "! fakesink");
  for (const char* name : {"always-copy", "use-bufferpool", "on-disconnect"}) {
    const bool isInstalled =
        g_object_class_find_property(G_OBJECT_GET_CLASS(source.get()), name) !=
        nullptr;
    EXPECT_EQ(text.find(name) != std::string::npos, isInstalled) << name;
  }
}

TEST(OmittedPropertiesTest, EverySourceOfTheTextIsLookedAt) {
  CaptureConfig config;
  config.audioMode = "process";
  config.pipeWireTargetObjects = {41, 58};
  Names omitted;
  const std::string text = OmitSourceProperties(BuildAudioPipeline(config),
                                                SupportsNothing, omitted);
  EXPECT_NE(text.find("pipewiresrc target-object=41 do-timestamp=true ! tee"),
            std::string::npos);
  EXPECT_NE(text.find("pipewiresrc target-object=58 do-timestamp=true ! tee"),
            std::string::npos);
  EXPECT_EQ(text.find("on-disconnect"), std::string::npos);
  EXPECT_EQ(omitted, Names{"on-disconnect"});
}

TEST(OmittedPropertiesTest, NothingElseIsEverLeftOut) {
  Names omitted;
  const std::string text = OmitSourceProperties(
      BuildHardwareVideoPipeline(MakeThreeBranchConfig(),
                                 GStreamerHardwareEncoderProfiles()[0]),
      SupportsNothing, omitted);
  EXPECT_EQ(text.rfind("pipewiresrc fd=42 path=77 do-timestamp=true ! "
                       "video/x-raw(memory:DMABuf) ! glupload ! ",
                       0),
            0U);
  for (const char* kept :
       {"drop-only=true max-rate=30", "bitrate=2500 max-bitrate=3000",
        "repeat-sequence-header=true", "emit-signals=true sync=false"}) {
    EXPECT_NE(text.find(kept), std::string::npos) << kept;
  }
  EXPECT_EQ(omitted, (Names{"always-copy", "use-bufferpool", "on-disconnect"}));
}

TEST(OmittedPropertiesTest, OtherElementsKeepPropertiesOfThatName) {
  Names omitted;
  const std::string text =
      "fakesrc on-disconnect=2 ! fakesink pipewiresrc fd=3 ! fakesink "
      "always-copy=false";
  EXPECT_EQ(OmitSourceProperties(text, SupportsNothing, omitted), text);
  EXPECT_TRUE(omitted.empty());
}

TEST(OmittedPropertiesTest, TheInstalledSourceTakesWhatIsLeft) {
  // Every text that this module builds must be launchable on this machine.
  CaptureConfig audio;
  audio.audioMode = "process";
  audio.pipeWireTargetObjects = {41};
  CaptureConfig portal = MakeThreeBranchConfig();
  portal.pipeWireFd = -1;
  EXPECT_NE(LaunchPipeline(BuildAudioPipeline(audio)), nullptr);
  EXPECT_NE(LaunchPipeline(BuildOpenH264VideoPipeline(portal)), nullptr);
}

}  // namespace
}  // namespace linux_capture
