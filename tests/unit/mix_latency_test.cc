#include "launch_boundary/mix_latency.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/gst_handles.h"
#include "launch_boundary/pipeline_clock.h"

namespace linux_capture {
namespace {

guint64 LatencyOf(GstElement* pipeline, const char* mixer = "mix") {
  guint64 latency = 0;
  g_object_get(FindElement(pipeline, mixer).get(), "latency", &latency,
               nullptr);
  return latency;
}

constexpr GstClockTime kBufferLength = 20 * GST_MSECOND;
constexpr gsize kBufferSize = gsize{960} * 2 * 2;

#define SOUND \
  "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved"

// A mix of two live sources, of which only the one named `source` plays.
class LiveMix {
 public:
  LiveMix()
      : pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
            "appsrc name=source is-live=true format=time caps=" SOUND
            " ! mix. appsrc is-live=true format=time caps=" SOUND
            " ! audiomixer name=mix ! " SOUND
            " ! appsink name=out sync=false async=false max-buffers=1",
            nullptr)))),
        source_(FindElement(pipeline_.get(), "source")),
        out_(FindElement(pipeline_.get(), "out")) {
    // As on the real line.
    const GstClockPtr clock(gst_system_clock_obtain());
    gst_pipeline_use_clock(GST_PIPELINE(pipeline_.get()), clock.get());
    gst_element_set_base_time(pipeline_.get(), gst_clock_get_time(clock.get()));
    WaitForLateSound(pipeline_.get());
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    gst_element_get_state(pipeline_.get(), nullptr, nullptr,
                          GST_CLOCK_TIME_NONE);
  }
  LiveMix(const LiveMix&) = delete;
  LiveMix& operator=(const LiveMix&) = delete;
  ~LiveMix() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }

  [[nodiscard]] guint64 latency() const { return LatencyOf(pipeline_.get()); }

  [[nodiscard]] GstClockTime Now() const {
    return gst_element_get_current_running_time(pipeline_.get());
  }

  void Push(GstClockTime stamp) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, kBufferSize, nullptr);
    gst_buffer_memset(buffer, 0, 1, kBufferSize);
    GST_BUFFER_PTS(buffer) = stamp;
    GST_BUFFER_DURATION(buffer) = kBufferLength;
    gst_app_src_push_buffer(GST_APP_SRC(source_.get()), buffer);
  }

  // Lets the mix, which waits to be read, go on until it has got to that
  // running time. Returns where it is then.
  GstClockTime MixUntil(GstClockTime time) {
    GstClockTime until = 0;
    while (until < time) {
      const GstSamplePtr sample(gst_app_sink_try_pull_sample(
          GST_APP_SINK(out_.get()), 20 * GST_SECOND));
      if (!sample) break;
      GstBuffer* buffer = gst_sample_get_buffer(sample.get());
      until = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
      const ReadableBuffer bytes(buffer);
      if (std::any_of(bytes.data(), bytes.data() + bytes.size(),
                      [](auto byte) { return byte != 0; })) {
        heardUntil_ = until;
      }
    }
    return until;
  }

  // Where the last buffer ends that holds any sound, of those that were read.
  [[nodiscard]] GstClockTime heardUntil() const { return heardUntil_; }

 private:
  GstElementPtr pipeline_;
  GstElementPtr source_;
  GstElementPtr out_;
  GstClockTime heardUntil_ = 0;
};

TEST(MixLatencyTest, ASourceThatNothingWaitsForMayBeLate) {
  const GstElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(
      gst_parse_launch("audiotestsrc ! audiomixer name=mix ! fakesink "
                       "audiomixer name=other ! fakesink",
                       nullptr))));
  WaitForLateSound(pipeline.get());
  EXPECT_EQ(LatencyOf(pipeline.get()), kLatestSound);
  EXPECT_EQ(LatencyOf(pipeline.get(), "other"), 0U);
}

TEST(MixLatencyTest, SeveralSourcesWaitForEachOtherForAMoment) {
  const LiveMix mix;
  EXPECT_EQ(mix.latency(), kLateSound);
}

TEST(MixLatencyTest, SoundThatComesInTimeIsNotWaitedForAnyLonger) {
  LiveMix mix;
  const GstClockTime begin = mix.Now() + 5 * kBufferLength;
  for (GstClockTime i = 0; i < 20; ++i) mix.Push(begin + i * kBufferLength);
  mix.MixUntil(begin + 19 * kBufferLength);
  EXPECT_EQ(mix.latency(), kLateSound);
}

TEST(MixLatencyTest, SoundThatCameTooLateIsWaitedForTheNextTime) {
  LiveMix mix;
  const GstClockTime begin = mix.Now() + kBufferLength;
  mix.Push(begin);
  const GstClockTime late = 5 * kBufferLength;
  const GstClockTime until = mix.MixUntil(begin + kBufferLength + late);
  mix.Push(until);
  // The sink only has it when it has been mixed.
  mix.MixUntil(until + kBufferLength);
  EXPECT_GE(mix.latency(), kLateSound + late);
  EXPECT_LE(mix.latency(), kLatestSound);
}

TEST(MixLatencyTest, ASourceThatPausedHoldsUpNobodyLater) {
  LiveMix mix;
  const GstClockTime begin = mix.Now() + kBufferLength;
  mix.Push(begin);
  const GstClockTime until = mix.MixUntil(begin + kBufferLength + kLatestSound);
  mix.Push(until);
  mix.MixUntil(until + kBufferLength);
  EXPECT_EQ(mix.latency(), kLateSound);
}

TEST(MixLatencyTest, SoundAfterLostTimeIsSoonInStepAgain) {
  LiveMix mix;
  const GstClockTime begin = mix.Now() + 5 * kBufferLength;
  const GstClockTime lost = 5 * kBufferLength;
  for (GstClockTime i = 0; i < 10; ++i) mix.Push(begin + i * kBufferLength);
  for (GstClockTime i = 10; i < 30; ++i) {
    mix.Push(begin + lost + i * kBufferLength);
  }
  mix.MixUntil(begin + 40 * kBufferLength);
  EXPECT_GE(mix.heardUntil(), begin + lost + 30 * kBufferLength);
  EXPECT_LE(mix.heardUntil(), begin + lost + 31 * kBufferLength);
}

TEST(MixLatencyTest, SoundThatIsReadInBurstsKeepsItsPlace) {
  LiveMix mix;
  const GstClockTime begin = mix.Now() + 5 * kBufferLength;
  for (GstClockTime i = 0; i < 80; ++i) {
    // Four at a time, when the last of them has come.
    mix.Push(begin + (i | 3U) * kBufferLength);
  }
  mix.MixUntil(begin + 97 * kBufferLength);
  EXPECT_GE(mix.heardUntil(), begin + 80 * kBufferLength);
  EXPECT_LE(mix.heardUntil(), begin + 84 * kBufferLength);
}

TEST(MixLatencyTest, APipelineWithoutAMixIsLeftAlone) {
  const GstElementPtr pipeline(GST_ELEMENT(
      gst_object_ref_sink(gst_parse_launch("fakesrc ! fakesink", nullptr))));
  WaitForLateSound(pipeline.get());
}

}  // namespace
}  // namespace linux_capture
