#include "launch_boundary/x11_source_check.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {
namespace {

constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

// What is said of a rectangle on a screen of 800 by 480, or "".
std::string RefusalOf(std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height) {
  CaptureConfig config;
  config.kind = "monitor";
  config.x = x;
  config.y = y;
  config.sourceWidth = width;
  config.sourceHeight = height;
  try {
    RequireRectangleOnScreen(config, {800, 480});
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(X11SourceCheckTest, ARectangleThatShowsPartOfTheScreenIsAccepted) {
  EXPECT_EQ(RefusalOf(0, 0, 800, 480), "");
  EXPECT_EQ(RefusalOf(799, 479, 1, 1), "");
  EXPECT_EQ(RefusalOf(0, 0, 1920, 1080), "");
  EXPECT_EQ(RefusalOf(0, 0, kHighest, kHighest), "");
}

TEST(X11SourceCheckTest, ARectangleOutsideTheScreenIsRefused) {
  EXPECT_EQ(RefusalOf(800, 0, 100, 100),
            "source.geometry 100x100 at 800,0 lies outside the X11 screen of "
            "800x480");
  EXPECT_EQ(RefusalOf(-1, 0, 100, 100),
            "source.geometry 100x100 at -1,0 begins outside the X11 screen of "
            "800x480");
  EXPECT_NE(RefusalOf(0, 480, 100, 100), "");
  EXPECT_NE(RefusalOf(kHighest, kHighest, kHighest, kHighest), "");
}

TEST(X11SourceCheckTest, OnePixelIsNotLookedAtHere) {
  EXPECT_EQ(RefusalOf(0, 0, 1, 1), "");
  EXPECT_EQ(RefusalOf(5, 5, 1, 1), "");
}

// A launched raw pipeline whose source is 200x100 at 700,0 of 800x480.
std::string BranchCapsWhenLimited(int x) {
  const GstElementPtr pipeline = LaunchPipeline(
      "ximagesrc name=screen ! videorate ! capsfilter name=branch "
      "caps=video/x-raw,format=I420,width=200,height=100 ! fakesink");
  CaptureConfig config;
  config.kind = "monitor";
  config.x = x;
  config.sourceWidth = 200;
  config.sourceHeight = 100;
  LimitToScreen(pipeline.get(), config, {800, 480});
  const GstElementPtr filter = FindElement(pipeline.get(), "branch");
  GstCaps* raw = nullptr;
  g_object_get(filter.get(), "caps", &raw, nullptr);
  const GstCapsPtr caps(raw);
  const GCharPtr text(gst_caps_to_string(caps.get()));
  return text.get();
}

TEST(X11SourceCheckTest, APartOfARectangleIsNotStretched) {
  EXPECT_NE(BranchCapsWhenLimited(700).find("pixel-aspect-ratio"),
            std::string::npos);
  EXPECT_EQ(BranchCapsWhenLimited(600).find("pixel-aspect-ratio"),
            std::string::npos);
}

TEST(X11SourceCheckTest, AnEndThatNoPropertyHoldsIsRefused) {
  EXPECT_EQ(RefusalOf(2, 0, kHighest, 100),
            "source.geometry 2147483647x100 at 2,0 ends too far outside the "
            "X11 screen of 800x480");
  EXPECT_EQ(RefusalOf(1, 0, kHighest, 100), "");
}

}  // namespace
}  // namespace linux_capture
