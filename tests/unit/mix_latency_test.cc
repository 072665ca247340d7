#include "launch_boundary/mix_latency.h"

#include <gtest/gtest.h>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

guint64 LatencyOf(GstElement* mixer) {
  guint64 latency = 0;
  g_object_get(mixer, "latency", &latency, nullptr);
  return latency;
}

// What it is good for depends on how busy a machine is; that is measured by
// tests/stress/sound_under_load.mjs.
TEST(MixLatencyTest, TheMixWaitsForLateSoundAndNoOtherMixerDoes) {
  const GstElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
      "audiomixer name=mix ! fakesink audiomixer name=other ! fakesink",
      nullptr))));
  WaitForLateSound(pipeline.get());
  EXPECT_EQ(LatencyOf(FindElement(pipeline.get(), "mix").get()), kLateSound);
  EXPECT_EQ(LatencyOf(FindElement(pipeline.get(), "other").get()), 0U);
}

TEST(MixLatencyTest, APipelineWithoutAMixIsLeftAlone) {
  const GstElementPtr pipeline(GST_ELEMENT(
      gst_object_ref_sink(gst_parse_launch("fakesrc ! fakesink", nullptr))));
  WaitForLateSound(pipeline.get());
}

}  // namespace
}  // namespace linux_capture
