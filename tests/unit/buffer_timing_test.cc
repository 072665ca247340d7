#include "delivery/buffer_timing.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "launch_boundary/pipeline_launch.h"
#include "state/counters.h"
#include "support/app_pipeline.h"
#include "support/capture_fixture.h"

namespace linux_capture {
namespace {

class BufferTimingTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    g_sessionClockOriginUs.Set(0);
    pipeline_ = LaunchPipeline("fakesrc ! fakesink");
  }

  static GstBufferPtr Buffer(GstClockTime pts, GstClockTime dts,
                             GstClockTime duration = GST_CLOCK_TIME_NONE) {
    GstBufferPtr buffer = MakeBuffer({1}, pts, duration);
    GST_BUFFER_DTS(buffer.get()) = dts;
    return buffer;
  }

  std::uint64_t OnSession(GstClockTime baseTime, std::uint64_t originUs,
                          GstClockTime pts) {
    gst_element_set_base_time(pipeline_.get(), baseTime);
    g_sessionClockOriginUs.Set(originUs);
    const GstBufferPtr buffer = Buffer(pts, GST_CLOCK_TIME_NONE);
    return ReadBufferTiming(buffer.get(), pipeline_.get(), 0).timestampUs;
  }

  GstElementPtr pipeline_;
};

constexpr GstClockTime kNone = GST_CLOCK_TIME_NONE;

TEST_F(BufferTimingTest, TimesAreWholeMicroseconds) {
  const GstBufferPtr buffer = Buffer(1'234'999, 777'999, 20'000'999);
  const BufferTiming timing = ReadBufferTiming(buffer.get(), nullptr, 5);
  EXPECT_EQ(timing.ptsUs, 1234U);
  EXPECT_EQ(timing.dtsUs, 777U);
  EXPECT_EQ(timing.timestampUs, 1234U);
  EXPECT_EQ(timing.durationUs, 20'000U);
}

TEST_F(BufferTimingTest, TheDtsServesWhenThePtsIsMissing) {
  const GstBufferPtr buffer = Buffer(kNone, 5'000'000);
  const BufferTiming timing = ReadBufferTiming(buffer.get(), nullptr, 0);
  EXPECT_EQ(timing.ptsUs, 0U);
  EXPECT_EQ(timing.dtsUs, 5000U);
  EXPECT_EQ(timing.timestampUs, 5000U);
}

TEST_F(BufferTimingTest, APtsBelowAMicrosecondIsMissing) {
  const GstBufferPtr buffer = Buffer(999, 5'000'000);
  const BufferTiming timing = ReadBufferTiming(buffer.get(), nullptr, 0);
  EXPECT_EQ(timing.ptsUs, 0U);
  EXPECT_EQ(timing.timestampUs, 5000U);
}

TEST_F(BufferTimingTest, WithoutAnyTimeTheMonotonicClockServes) {
  const GstBufferPtr buffer = Buffer(kNone, kNone);
  const auto before = static_cast<std::uint64_t>(g_get_monotonic_time());
  const BufferTiming timing = ReadBufferTiming(buffer.get(), nullptr, 33'333);
  EXPECT_GE(timing.timestampUs, before);
  EXPECT_LE(timing.timestampUs,
            static_cast<std::uint64_t>(g_get_monotonic_time()));
  EXPECT_EQ(timing.ptsUs, 0U);
  EXPECT_EQ(timing.dtsUs, 0U);
  EXPECT_EQ(timing.durationUs, 33'333U);
}

TEST_F(BufferTimingTest, AMissingOrZeroDurationTakesTheFallback) {
  for (const GstClockTime duration :
       {kNone, GstClockTime{0}, GstClockTime{999}}) {
    const GstBufferPtr buffer = Buffer(GST_SECOND, kNone, duration);
    EXPECT_EQ(ReadBufferTiming(buffer.get(), nullptr, 41).durationUs, 41U);
  }
}

TEST_F(BufferTimingTest, TheBaseTimePlacesABufferOnTheSessionClock) {
  EXPECT_EQ(OnSession(10 * GST_SECOND, 4'000'000, GST_SECOND), 7'000'000U);
  EXPECT_EQ(OnSession(4 * GST_SECOND, 5'000'000, GST_SECOND), 0U);
}

TEST_F(BufferTimingTest, ATimeBeforeTheOriginStaysAsItIs) {
  EXPECT_EQ(OnSession(4 * GST_SECOND, 5'000'001, GST_SECOND), 1'000'000U);
}

TEST_F(BufferTimingTest, WithoutABaseTimeOrOriginTheTimeStaysAsItIs) {
  EXPECT_EQ(OnSession(0, 4'000'000, GST_SECOND), 1'000'000U);
  EXPECT_EQ(OnSession(999, 500'000, GST_SECOND), 1'000'000U);
  EXPECT_EQ(OnSession(1000, 500'000, GST_SECOND), 500'001U);
  EXPECT_EQ(OnSession(10 * GST_SECOND, 0, GST_SECOND), 1'000'000U);
}

TEST_F(BufferTimingTest, OnlyTheTimestampIsOnTheSessionClock) {
  gst_element_set_base_time(pipeline_.get(), 10 * GST_SECOND);
  g_sessionClockOriginUs.Set(4'000'000);
  const GstBufferPtr buffer = Buffer(GST_SECOND, 2 * GST_SECOND);
  const BufferTiming timing =
      ReadBufferTiming(buffer.get(), pipeline_.get(), 0);
  EXPECT_EQ(timing.ptsUs, 1'000'000U);
  EXPECT_EQ(timing.dtsUs, 2'000'000U);
}

TEST(FrameDurationTest, ItIsRoundedToTheNearestMicrosecond) {
  EXPECT_EQ(FrameDurationUs(30), 33'333U);
  EXPECT_EQ(FrameDurationUs(15), 66'667U);
  EXPECT_EQ(FrameDurationUs(7), 142'857U);
  EXPECT_EQ(FrameDurationUs(60), 16'667U);
  EXPECT_EQ(FrameDurationUs(1), 1'000'000U);
}

TEST(FrameDurationTest, ARateThatIsNotPositiveHasNone) {
  EXPECT_EQ(FrameDurationUs(0), 0U);
  EXPECT_EQ(FrameDurationUs(-30), 0U);
}

TEST(SampleCapsTest, CapsAreGivenAsText) {
  const GstCapsPtr caps(gst_caps_from_string("video/x-raw,width=4"));
  const GstSamplePtr sample(
      gst_sample_new(nullptr, caps.get(), nullptr, nullptr));
  EXPECT_EQ(SampleCapsString(sample.get()), "video/x-raw, width=(int)4");
}

TEST(SampleCapsTest, MissingAndEmptyCapsAreAnEmptyText) {
  const GstSamplePtr bare(gst_sample_new(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(SampleCapsString(bare.get()), "");
  const GstCapsPtr none(gst_caps_new_empty());
  const GstSamplePtr empty(
      gst_sample_new(nullptr, none.get(), nullptr, nullptr));
  EXPECT_EQ(SampleCapsString(empty.get()), "");
}

}  // namespace
}  // namespace linux_capture
