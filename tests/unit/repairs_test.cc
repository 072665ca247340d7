#include "launch_boundary/repairs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/screen_scaler.h"
#include "support/capture_fixture.h"

namespace linux_capture {
namespace {

constexpr std::array kAllKinds = {PipelineKind::kX11, PipelineKind::kScreenCast,
                                  PipelineKind::kHardware,
                                  PipelineKind::kSound};

using Names = std::vector<std::string_view>;

Names NamesOf(PipelineKind kind) {
  Names names;
  for (const Repair& repair : RepairsFor(kind)) names.push_back(repair.name());
  return names;
}

bool Has(PipelineKind kind, std::string_view name) {
  const Names names = NamesOf(kind);
  return std::find(names.begin(), names.end(), name) != names.end();
}

TEST(RepairListTest, NothingIsRepairedTwice) {
  for (const PipelineKind kind : kAllKinds) {
    const Names names = NamesOf(kind);
    EXPECT_FALSE(names.empty());
    EXPECT_EQ(std::set(names.begin(), names.end()).size(), names.size());
  }
}

TEST(RepairListTest, WhatHasToComeFirstComesFirst) {
  struct Order {
    std::string_view first;
    std::string_view then;
    const char* reason;
  };
  constexpr std::array kOrders = {
      Order{"scaling_method", "screen_scaler",
            "the new scaler takes over the method of the stock one"},
      Order{"screen_scaler", "videorate_latency",
            "a probe on a scaler goes with it when it is replaced"},
      Order{"source_timestamps", "videorate_latency",
            "the rate adapter is fed by times that are believed"},
      Order{"source_timestamps", "repeated_pictures",
            "a picture without a time of its own gets one before it is told "
            "from a repetition"},
      Order{"format_watch", "picture_check",
            "what the check leaves out is what the watch looks for"},
      Order{"source_watch", "source_disconnect",
            "only where the loss of a source is seen may the source keep it"},
      Order{"source_watch", "held_ending",
            "what is held is judged by what the watch knows"},
      Order{"source_watch", "source_check",
            "the check looks through the connection of the watch"},
      Order{"source_fallback", "source_check",
            "a source that the check lets pass must not turn to another"},
      Order{"empty_mix", "pipeline_clock",
            "the clock is that of a pipeline with a source"},
      Order{"source_check", "buffer_copy",
            "nothing is done for a source that is refused"},
      Order{"x11_guard", "x11_picture_hold",
            "the guard takes the picture of a source that failed away, which "
            "must not be held"},
  };
  for (const Order& order : kOrders) {
    bool isUsed = false;
    for (const PipelineKind kind : kAllKinds) {
      if (!Has(kind, order.first) || !Has(kind, order.then)) continue;
      isUsed = true;
      const Names names = NamesOf(kind);
      EXPECT_LT(std::find(names.begin(), names.end(), order.first),
                std::find(names.begin(), names.end(), order.then))
          << order.first << " before " << order.then << ": " << order.reason;
    }
    EXPECT_TRUE(isUsed) << order.first << " before " << order.then;
  }
}

TEST(RepairListTest, EveryPipeWireSourceIsTiedCheckedAndWatched) {
  for (const PipelineKind kind :
       {PipelineKind::kScreenCast, PipelineKind::kHardware,
        PipelineKind::kSound}) {
    for (const char* name : {"source_fallback", "source_watch", "source_check",
                             "pipeline_clock"}) {
      EXPECT_TRUE(Has(kind, name)) << name;
    }
  }
}

TEST(RepairListTest, HardwarePicturesStayInGraphicsMemory) {
  for (const char* name :
       {"buffer_copy", "screen_scaler", "screen_converter", "colorimetry"}) {
    EXPECT_FALSE(Has(PipelineKind::kHardware, name)) << name;
  }
}

TEST(RepairListTest, OnlyX11SourcesAreGuardedFromXlib) {
  EXPECT_TRUE(Has(PipelineKind::kX11, "x11_guard"));
  EXPECT_FALSE(Has(PipelineKind::kScreenCast, "x11_guard"));
}

// What a source and a scaler are called here does not matter to the repairs.
constexpr const char* kRawText =
    "videotestsrc ! videoconvert ! capsfilter name=source "
    "caps=video/x-raw,format=I420 ! tee name=t "
    "t. ! queue ! videoscale name=scaler ! videorate name=rate ! capsfilter "
    "name=branch caps=video/x-raw,format=I420,width=32,height=32,"
    "framerate=15/1 ! fakesink";

std::string CapsOf(GstElement* pipeline, const std::string& name) {
  const GstElementPtr filter = FindElement(pipeline, name);
  GstCaps* raw = nullptr;
  g_object_get(filter.get(), "caps", &raw, nullptr);
  const GstCapsPtr caps(raw);
  const GCharPtr text(gst_caps_to_string(caps.get()));
  return text.get();
}

bool Mentions(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

TEST(RepairTest, AnX11SourceMustRunAtTheHighestRate) {
  const GstElementPtr pipeline = LaunchPipeline(kRawText);
  const CaptureConfig config = MakeThreeBranchConfig();
  ApplyRepairs(pipeline.get(), PipelineKind::kX11, {config});
  const std::string caps = CapsOf(pipeline.get(), "source");
  EXPECT_TRUE(Mentions(caps, "framerate=(fraction)30/1")) << caps;
  EXPECT_TRUE(Mentions(caps, "1:3:5:1")) << caps;
  EXPECT_FALSE(Mentions(caps, ";")) << caps;
}

TEST(RepairTest, AScreenCastIsAskedForTheHighestRateAndMayHaveItsOwn) {
  const GstElementPtr pipeline = LaunchPipeline(kRawText);
  const CaptureConfig config = MakeThreeBranchConfig();
  ApplyRepairs(pipeline.get(), PipelineKind::kScreenCast, {config});
  const std::string caps = CapsOf(pipeline.get(), "source");
  const std::size_t second = caps.find(';');
  ASSERT_NE(second, std::string::npos) << caps;
  const std::string asked = caps.substr(0, second);
  const std::string own = caps.substr(second);
  EXPECT_TRUE(Mentions(asked, "framerate=(fraction)30/1")) << caps;
  EXPECT_FALSE(Mentions(own, "framerate")) << caps;
  EXPECT_TRUE(Mentions(asked, "1:3:5:1")) << caps;
  EXPECT_TRUE(Mentions(own, "1:3:5:1")) << caps;
}

TEST(RepairTest, ABranchHasTheColourOfTheStreamAndItsOwnRate) {
  const GstElementPtr pipeline = LaunchPipeline(kRawText);
  const CaptureConfig config = MakeThreeBranchConfig();
  ApplyRepairs(pipeline.get(), PipelineKind::kX11, {config});
  const std::string caps = CapsOf(pipeline.get(), "branch");
  EXPECT_TRUE(Mentions(caps, "1:3:5:1")) << caps;
  EXPECT_TRUE(Mentions(caps, "framerate=(fraction)15/1")) << caps;
}

TEST(RepairTest, TheScalerKeepsTheMethodThatWasSet) {
  const GstElementPtr pipeline = LaunchPipeline(kRawText);
  const CaptureConfig config = MakeThreeBranchConfig();
  ApplyRepairs(pipeline.get(), PipelineKind::kX11, {config});
  const GstElementPtr scaler = FindElement(pipeline.get(), "scaler");
  ASSERT_TRUE(IsVideoScaler(scaler.get()));
  gint method = 0;
  g_object_get(scaler.get(), "method", &method, nullptr);
  GstElementPtr fresh(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("videoscale", nullptr))));
  gst_util_set_object_arg(G_OBJECT(fresh.get()), "method", "bilinear2");
  gint wanted = 0;
  g_object_get(fresh.get(), "method", &wanted, nullptr);
  EXPECT_EQ(method, wanted);
}

TEST(RepairTest, SoundDoesNotWaitForTheSlowestSource) {
  const GstElementPtr pipeline =
      LaunchPipeline("audiotestsrc ! appsink name=one");
  const CaptureConfig config;
  ApplyRepairs(pipeline.get(), PipelineKind::kSound, {config});
  const GstElementPtr sink = FindElement(pipeline.get(), "one");
  gboolean isAsync = TRUE;
  g_object_get(sink.get(), "async", &isAsync, nullptr);
  EXPECT_FALSE(isAsync);
}

}  // namespace
}  // namespace linux_capture
