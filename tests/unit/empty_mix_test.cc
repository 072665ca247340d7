#include "launch_boundary/empty_mix.h"

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {
namespace {

int SilencesIn(GstElement* pipeline) {
  int count = 0;
  ForEachElementOf(pipeline, "audiotestsrc",
                   [&count](GstElement*) { ++count; });
  return count;
}

TEST(EmptyMixTest, AMixWithoutASourceDeliversSilence) {
  const GstElementPtr pipeline = LaunchPipeline(
      "audiomixer name=mix ! audioconvert ! "
      "audio/x-raw,format=S16LE,rate=48000,channels=2 ! "
      "appsink name=sink sync=false");
  FeedEmptyMix(pipeline.get());
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const GstElementPtr sink = FindElement(pipeline.get(), "sink");
  const GstSamplePtr sample(
      gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 10 * GST_SECOND));
  ASSERT_NE(sample, nullptr);
  GstMapInfo map{};
  ASSERT_TRUE(
      gst_buffer_map(gst_sample_get_buffer(sample.get()), &map, GST_MAP_READ));
  EXPECT_GT(map.size, 0U);
  EXPECT_TRUE(std::all_of(map.data, map.data + map.size,
                          [](guint8 byte) { return byte == 0; }));
  gst_buffer_unmap(gst_sample_get_buffer(sample.get()), &map);
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

TEST(EmptyMixTest, AMixWithASourceAndAPipelineWithoutAMixAreLeftAlone) {
  for (const char* text : {"audiomixer name=mix ! fakesink fakesrc ! mix.",
                           "fakesrc ! fakesink"}) {
    const GstElementPtr pipeline = LaunchPipeline(text);
    FeedEmptyMix(pipeline.get());
    EXPECT_EQ(SilencesIn(pipeline.get()), 0) << text;
  }
}

}  // namespace
}  // namespace linux_capture
