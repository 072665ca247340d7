#include "launch_boundary/picture_backlog.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <semaphore>
#include <thread>
#include <utility>
#include <vector>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/conversion_gate.h"
#include "launch_boundary/videorate_latency.h"

namespace linux_capture {
namespace {

constexpr int kRate = 30;
constexpr std::uint64_t kPeriodUs = 1'000'000 / kRate;

struct Shown {
  int number;
  std::uint64_t us;
};

// A branch whose encoder takes a picture when the test lets it. The pipeline's
// time began ten seconds ago, so every picture comes late.
class HeldBranch {
 public:
  HeldBranch()
      : pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
            "appsrc name=in format=time caps=video/x-raw,format=GRAY8,"
            "width=2,height=2,framerate=30/1 ! "
            "queue max-size-buffers=4 leaky=downstream ! "
            "videoconvert name=converter ! video/x-raw,format=GRAY8 ! "
            "queue name=queue max-size-buffers=4 leaky=downstream ! "
            "videoscale ! videorate skip-to-first=true ! "
            "video/x-raw,framerate=30/1 ! appsink name=out sync=false "
            "async=false",
            nullptr)))),
        in_(FindElement(pipeline_.get(), "in")),
        queue_(FindElement(pipeline_.get(), "queue")),
        out_(FindElement(pipeline_.get(), "out")) {
    SpareConversions(
        pipeline_.get(),
        DeliverPicturesPromptly(pipeline_.get(), GST_CLOCK_TIME_NONE));
    CountConversions();
    const GstPadPtr pad(gst_element_get_static_pad(out_.get(), "sink"));
    AddBufferProbe(pad.get(), [this](GstPad*, PassingBuffer&) {
      ++arrived_;
      turns_.acquire();
      return GST_PAD_PROBE_OK;
    });
    const std::unique_ptr<GstClock, GstObjectDeleter> clock(
        gst_pipeline_get_pipeline_clock(GST_PIPELINE(pipeline_.get())));
    gst_pipeline_use_clock(GST_PIPELINE(pipeline_.get()), clock.get());
    gst_element_set_start_time(pipeline_.get(), GST_CLOCK_TIME_NONE);
    gst_element_set_base_time(
        pipeline_.get(), gst_clock_get_time(clock.get()) - 10 * GST_SECOND);
    // At once, so that the first picture meets a clock.
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    gst_element_get_state(pipeline_.get(), nullptr, nullptr, 10 * GST_SECOND);
  }
  HeldBranch(const HeldBranch&) = delete;
  HeldBranch& operator=(const HeldBranch&) = delete;
  ~HeldBranch() {
    turns_.release(1000);
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }

  // Waits until it is in the queue, the first one until the encoder has it.
  void Send(int number) {
    const guint before = Waiting();
    Push(number);
    const bool isFirst = std::exchange(isIdle_, false);
    while (isFirst ? arrived_ == 0 : Waiting() == before) {
      std::this_thread::yield();
    }
  }

  // Waits until it is decided whether it is converted.
  void Offer(int number) {
    Push(number);
    const int before = marks_;
    gst_element_send_event(
        in_.get(), gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM,
                                        gst_structure_new_empty("mark")));
    while (marks_ == before) std::this_thread::yield();
  }

  [[nodiscard]] int conversions() const { return conversions_; }

  // The branch's clock, which runs on besides.
  void PassTime(GstClockTimeDiff time) {
    gst_element_set_base_time(
        queue_.get(),
        static_cast<GstClockTime>(static_cast<GstClockTimeDiff>(
                                      gst_element_get_base_time(queue_.get())) -
                                  time));
  }

  // The encoder is done with what it has and gets the next one.
  void Turn() {
    const int before = arrived_;
    turns_.release();
    while (arrived_ == before) std::this_thread::yield();
  }

  // All that went out, but for the copy that videorate makes of the last one
  // when the stream ends.
  std::vector<Shown> End() {
    turns_.release(1000);
    gst_app_src_end_of_stream(GST_APP_SRC(in_.get()));
    std::vector<Shown> shown;
    for (;;) {
      const GstSamplePtr sample(gst_app_sink_try_pull_sample(
          GST_APP_SINK(out_.get()), 10 * GST_SECOND));
      if (!sample) break;
      GstBuffer* buffer = gst_sample_get_buffer(sample.get());
      const ReadableBuffer bytes(buffer);
      shown.push_back({*bytes.data(), GST_BUFFER_PTS(buffer) / GST_USECOND});
    }
    if (!shown.empty()) shown.pop_back();
    return shown;
  }

 private:
  [[nodiscard]] guint Waiting() const {
    guint waiting = 0;
    g_object_get(queue_.get(), "current-level-buffers", &waiting, nullptr);
    return waiting;
  }

  void Push(int number) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 16, nullptr);
    gst_buffer_memset(buffer, 0, static_cast<guint8>(number), 16);
    GST_BUFFER_PTS(buffer) =
        static_cast<GstClockTime>(number) * kPeriodUs * GST_USECOND;
    gst_app_src_push_buffer(GST_APP_SRC(in_.get()), buffer);
  }

  void CountConversions() {
    const GstElementPtr converter = FindElement(pipeline_.get(), "converter");
    const GstPadPtr pad(gst_element_get_static_pad(converter.get(), "sink"));
    AddBufferProbe(pad.get(), [this](GstPad*, PassingBuffer&) {
      ++conversions_;
      return GST_PAD_PROBE_OK;
    });
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer marks) {
          if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) !=
              GST_EVENT_CUSTOM_DOWNSTREAM) {
            return GST_PAD_PROBE_OK;
          }
          static_cast<std::atomic<int>*>(marks)->fetch_add(1);
          return GST_PAD_PROBE_DROP;
        },
        &marks_, nullptr);
  }

  std::atomic<int> conversions_ = 0;
  std::atomic<int> marks_ = 0;
  GstElementPtr pipeline_;
  GstElementPtr in_;
  GstElementPtr queue_;
  GstElementPtr out_;
  bool isIdle_ = true;
  std::atomic<int> arrived_ = 0;
  std::counting_semaphore<> turns_{0};
};

std::vector<int> NumbersOf(const std::vector<Shown>& shown) {
  std::vector<int> numbers;
  for (const Shown& picture : shown) numbers.push_back(picture.number);
  return numbers;
}

// The encoder has had 0 to 3, all late, and has 6 now.
void FallBehind(HeldBranch& branch) {
  for (const int number : {0, 1, 2, 3, 4}) branch.Send(number);
  for (int turn = 0; turn < 3; ++turn) branch.Turn();
  // Only 4 waits.
  branch.Send(5);
  branch.Send(6);
  branch.Turn();
}

TEST(PictureBacklogTest, AnEncoderThatStaysBehindGetsTheNewestAndNoCopies) {
  HeldBranch branch;
  FallBehind(branch);
  // From now on it has the newest each time.
  for (const int number : {7, 8, 9}) branch.Send(number);
  branch.Turn();
  const std::vector<Shown> shown = branch.End();
  EXPECT_EQ(NumbersOf(shown), (std::vector{0, 1, 2, 3, 6, 9}));
  for (const Shown& picture : shown) {
    EXPECT_NEAR(static_cast<double>(picture.us),
                static_cast<double>(picture.number) * kPeriodUs, 1'000);
  }
}

// A source that is slowed down by the same machine sends one in each turn.
TEST(PictureBacklogTest, AnEncoderThatStaysBehindFillsNoGapOfTheSource) {
  HeldBranch branch;
  FallBehind(branch);
  branch.Send(10);
  branch.Turn();
  branch.Send(13);
  branch.Turn();
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 1, 2, 3, 6, 10, 13}));
}

TEST(PictureBacklogTest, AGapIsFilledByAnEncoderThatHasTheTime) {
  HeldBranch branch;
  branch.Send(0);
  branch.Send(3);
  // As if the turn had taken no time.
  branch.PassTime(-5 * static_cast<GstClockTimeDiff>(GST_SECOND));
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 0, 3, 3}));
}

TEST(PictureBacklogTest, AGapStaysOpenAfterATurnOfMoreThanAPeriod) {
  HeldBranch branch;
  branch.Send(0);
  branch.Send(3);
  branch.PassTime(1 * GST_SECOND);
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 3}));
}

TEST(PictureBacklogTest, OnlyAPictureThatComesLateInATurnIsConverted) {
  HeldBranch branch;
  FallBehind(branch);
  branch.Send(7);
  branch.PassTime(10 * GST_SECOND);
  branch.Turn();
  const int before = branch.conversions();
  // The next turn has just begun, after one of half a second and more.
  branch.PassTime(-5 * static_cast<GstClockTimeDiff>(GST_SECOND));
  branch.Offer(8);
  branch.Offer(9);
  EXPECT_EQ(branch.conversions(), before);
  branch.PassTime(6 * GST_SECOND);
  branch.Send(10);
  EXPECT_EQ(branch.conversions(), before + 1);
  branch.Turn();
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 1, 2, 3, 6, 7, 10}));
}

// The queue holds one picture of 4K.
TEST(PictureBacklogTest, LongTurnsMeanTheSameWithoutPicturesThatWait) {
  HeldBranch branch;
  branch.Send(0);
  for (const int number : {1, 2, 3, 4}) {
    branch.Send(number);
    branch.PassTime(1 * GST_SECOND);
    branch.Turn();
  }
  const int before = branch.conversions();
  branch.PassTime(-1 * static_cast<GstClockTimeDiff>(GST_SECOND));
  branch.Offer(5);
  EXPECT_EQ(branch.conversions(), before);
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 1, 2, 3, 4}));
}

TEST(PictureBacklogTest, AnEncoderThatKeepsUpHasEveryPictureConverted) {
  HeldBranch branch;
  branch.Send(0);
  branch.PassTime(10 * GST_SECOND);
  branch.Send(1);
  branch.Turn();
  branch.PassTime(-5 * static_cast<GstClockTimeDiff>(GST_SECOND));
  for (const int number : {2, 3, 4}) branch.Send(number);
  EXPECT_EQ(branch.conversions(), 5);
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 1, 2, 3, 4}));
}

TEST(PictureBacklogTest, OneLongTurnCostsNoPicture) {
  HeldBranch branch;
  for (const int number : {0, 1, 2, 3, 4}) branch.Send(number);
  EXPECT_EQ(NumbersOf(branch.End()), (std::vector{0, 1, 2, 3, 4}));
}

}  // namespace
}  // namespace linux_capture
