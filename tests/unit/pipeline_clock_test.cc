#include "launch_boundary/pipeline_clock.h"

#include <gtest/gtest.h>

#include <memory>

#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {
namespace {

struct ClockIdDeleter {
  void operator()(gpointer id) const noexcept { gst_clock_id_unref(id); }
};
using ClockIdPtr = std::unique_ptr<void, ClockIdDeleter>;

struct Wait {
  GstClockReturn result;
  GstClockTimeDiff jitter;
  GstClockTime took;
};

Wait WaitUntil(GstClock* clock, GstClockTime time) {
  const ClockIdPtr id(gst_clock_new_single_shot_id(clock, time));
  const GstClockTime begin = gst_clock_get_time(clock);
  GstClockTimeDiff jitter = 0;
  const GstClockReturn result = gst_clock_id_wait(id.get(), &jitter);
  return {result, jitter, gst_clock_get_time(clock) - begin};
}

GstClockPtr ClockOf(GstElement* pipeline) {
  return GstClockPtr(gst_pipeline_get_pipeline_clock(GST_PIPELINE(pipeline)));
}

class PipelineClockTest : public ::testing::Test {
 protected:
  GstClockPtr clock = NewImpatientClock();
};

TEST_F(PipelineClockTest, ShowsMonotonicTime) {
  const auto before = static_cast<GstClockTime>(g_get_monotonic_time());
  const GstClockTime shown = gst_clock_get_time(clock.get()) / GST_USECOND;
  const auto after = static_cast<GstClockTime>(g_get_monotonic_time());
  EXPECT_GE(shown, before);
  EXPECT_LE(shown, after);
}

TEST_F(PipelineClockTest, WaitsForATimeThatIsNear) {
  const GstClockTime distance = 50 * GST_MSECOND;
  const Wait wait =
      WaitUntil(clock.get(), gst_clock_get_time(clock.get()) + distance);
  EXPECT_EQ(wait.result, GST_CLOCK_OK);
  EXPECT_GE(wait.took, distance - 5 * GST_MSECOND);
}

TEST_F(PipelineClockTest, DoesNotWaitForATimeThatIsAnHourAhead) {
  const GstClockTime hour = 3600 * GST_SECOND;
  const Wait wait =
      WaitUntil(clock.get(), gst_clock_get_time(clock.get()) + hour);
  EXPECT_EQ(wait.result, GST_CLOCK_EARLY);
  EXPECT_LT(wait.took, 10 * GST_SECOND);
  // As for any wait: negative when the time has not come.
  EXPECT_LT(wait.jitter, 0);
}

TEST_F(PipelineClockTest, TellsOfATimeThatIsPast) {
  const Wait wait =
      WaitUntil(clock.get(), gst_clock_get_time(clock.get()) - GST_MSECOND);
  EXPECT_EQ(wait.result, GST_CLOCK_EARLY);
  EXPECT_GT(wait.jitter, 0);
}

TEST_F(PipelineClockTest, IsThatOfEveryPipelineWithAPipeWireSource) {
  const GstElementPtr pipeline = LaunchPipeline("pipewiresrc ! fakesink");
  UseMonotonicClock(pipeline.get(), ClockWaits::kBounded);
  EXPECT_EQ(G_OBJECT_TYPE(ClockOf(pipeline.get()).get()),
            G_OBJECT_TYPE(clock.get()));
}

TEST_F(PipelineClockTest, IsNotThatOfOtherPipelines) {
  const GstElementPtr pipeline = LaunchPipeline("fakesrc ! fakesink");
  UseMonotonicClock(pipeline.get(), ClockWaits::kBounded);
  EXPECT_NE(G_OBJECT_TYPE(ClockOf(pipeline.get()).get()),
            G_OBJECT_TYPE(clock.get()));
  const GstElementPtr element = AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("fakesrc", nullptr))));
  UseMonotonicClock(element.get(), ClockWaits::kAny);
}

}  // namespace
}  // namespace linux_capture
