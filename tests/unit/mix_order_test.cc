#include "launch_boundary/mix_order.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

constexpr gsize kTenMilliseconds = 480 * 2 * 2;

// Something with the name of the mixer, between made-up times and what becomes
// of them.
class MixLine {
 public:
  MixLine()
      : pipeline_(GST_ELEMENT(gst_object_ref_sink(
            gst_parse_launch("appsrc name=in format=time ! identity name=mix ! "
                             "appsink name=out sync=false",
                             nullptr)))) {
    OrderMix(pipeline_.get());
  }
  MixLine(const MixLine&) = delete;
  MixLine& operator=(const MixLine&) = delete;
  ~MixLine() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }

  [[nodiscard]] GstElement* get() const { return pipeline_.get(); }

  // Sends buffers of ten milliseconds, begun at `startMs` of the clock, and
  // returns when each begins on the clock, in microseconds.
  [[nodiscard]] std::vector<std::uint64_t> Run(
      std::uint64_t startMs, const std::vector<std::uint64_t>& timesMs) {
    // The pipeline would take the clock's own time otherwise.
    gst_element_set_start_time(pipeline_.get(), GST_CLOCK_TIME_NONE);
    gst_element_set_base_time(pipeline_.get(), startMs * GST_MSECOND);
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    const GstElementPtr in = FindElement(pipeline_.get(), "in");
    const GstElementPtr out = FindElement(pipeline_.get(), "out");
    for (const std::uint64_t ms : timesMs) {
      GstBuffer* buffer =
          gst_buffer_new_allocate(nullptr, kTenMilliseconds, nullptr);
      GST_BUFFER_PTS(buffer) = ms * GST_MSECOND;
      gst_app_src_push_buffer(GST_APP_SRC(in.get()), buffer);
    }
    gst_app_src_end_of_stream(GST_APP_SRC(in.get()));
    std::vector<std::uint64_t> begins;
    while (const GstSamplePtr sample{
        gst_app_sink_pull_sample(GST_APP_SINK(out.get()))}) {
      begins.push_back(startMs * 1000 +
                       GST_BUFFER_PTS(gst_sample_get_buffer(sample.get())) /
                           GST_USECOND);
    }
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    return begins;
  }

 private:
  GstElementPtr pipeline_;
};

using Begins = std::vector<std::uint64_t>;

TEST(MixOrderTest, TimesGrowFromOneThatIsNotZero) {
  MixLine line;
  EXPECT_EQ(line.Run(1'000, {0, 0, 10, 40}),
            (Begins{1'000'001, 1'010'001, 1'020'001, 1'040'000}));
}

TEST(MixOrderTest, WhatTheEarlierMixHadDoesNotComeAgain) {
  MixLine earlier;
  EXPECT_EQ(earlier.Run(1'000, {0, 10, 20}).back(), 1'020'001U);
  MixLine line;
  ContinueMix(earlier.get(), line.get());
  EXPECT_EQ(line.Run(1'011, {0, 10, 20}), (Begins{1'021'001, 1'031'001}));
}

TEST(MixOrderTest, AMixThatBeginsLaterIsWhole) {
  MixLine earlier;
  EXPECT_EQ(earlier.Run(1'000, {0, 10}).size(), 2U);
  MixLine line;
  ContinueMix(earlier.get(), line.get());
  EXPECT_EQ(line.Run(1'030, {0, 10}), (Begins{1'030'001, 1'040'001}));
}

TEST(MixOrderTest, AMixWithoutSoundHandsOnTheOneBefore) {
  MixLine first;
  EXPECT_EQ(first.Run(1'000, {0, 10, 20}).size(), 3U);
  MixLine silent;
  ContinueMix(first.get(), silent.get());
  EXPECT_EQ(silent.Run(1'005, {}), Begins{});
  MixLine line;
  ContinueMix(silent.get(), line.get());
  EXPECT_EQ(line.Run(1'011, {0, 10}), Begins{1'021'001});
}

TEST(MixOrderTest, PipelinesWithoutAMixAreLeftAlone) {
  const MixLine line;
  const GstElementPtr other(GST_ELEMENT(
      gst_object_ref_sink(gst_parse_launch("fakesrc ! fakesink", nullptr))));
  OrderMix(other.get());
  ContinueMix(other.get(), line.get());
  ContinueMix(line.get(), other.get());
}

}  // namespace
}  // namespace linux_capture
