#include "session/bus_thread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "delivery/callbacks.h"
#include "delivery/lifecycle.h"
#include "launch_boundary/pipeline_launch.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"

namespace linux_capture {
namespace {

class PollBusTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    pipeline_ = LaunchPipeline("fakesrc ! fakesink");
    g_width.Set(640);
    g_height.Set(360);
  }

  static void Post(GstElement* pipeline, GstMessage* message) {
    const GstBusPtr bus(gst_element_get_bus(pipeline));
    EXPECT_TRUE(gst_bus_post(bus.get(), message));
  }

  static void PostError(GstElement* pipeline, const char* text) {
    const GErrorPtr error(g_error_new_literal(GST_RESOURCE_ERROR,
                                              GST_RESOURCE_ERROR_FAILED, text));
    Post(pipeline, gst_message_new_error(GST_OBJECT_CAST(pipeline), error.get(),
                                         "debug"));
  }

  static void PostEos(GstElement* pipeline) {
    Post(pipeline, gst_message_new_eos(GST_OBJECT_CAST(pipeline)));
  }

  void Poll(const std::string& name) {
    const std::lock_guard lock(g_mutex);
    PollBus(pipeline_.get(), name);
  }

  GstElementPtr pipeline_;
};

TEST_F(PollBusTest, EveryErrorIsCountedAndEmitted) {
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  PostError(pipeline_.get(), "the first");
  PostError(pipeline_.get(), "the second");
  Poll("video");
  EXPECT_EQ(g_gstBusErrors.Get(), 2U);
  EXPECT_EQ(*g_lastGstBusError, "video: the second");
  const auto events = listener.Take();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0]->state, "error");
  EXPECT_EQ(events[0]->reason, "video: the first");
  EXPECT_EQ(events[0]->width, 640);
  EXPECT_EQ(events[0]->height, 360);
  EXPECT_EQ(events[1]->reason, "video: the second");
}

TEST_F(PollBusTest, TheEndOfAStreamIsCountedAndEmitted) {
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  PostEos(pipeline_.get());
  Poll("audio");
  EXPECT_EQ(g_gstBusEos.Get(), 1U);
  EXPECT_EQ(g_gstBusErrors.Get(), 0U);
  EXPECT_EQ(*g_lastGstBusError, "");
  const auto events = listener.Take();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0]->state, "stopped");
  EXPECT_EQ(events[0]->reason, "audio eos");
  EXPECT_EQ(events[0]->width, 640);
}

TEST_F(PollBusTest, OtherMessagesAreIgnored) {
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  Post(pipeline_.get(),
       gst_message_new_latency(GST_OBJECT_CAST(pipeline_.get())));
  PostError(pipeline_.get(), "behind it");
  Poll("video");
  EXPECT_EQ(listener.Take().size(), 1U);
  Poll("video");
  EXPECT_TRUE(listener.Take().empty());
  EXPECT_EQ(g_gstBusErrors.Get(), 1U);
}

TEST_F(PollBusTest, WithoutAPipelineNothingHappens) {
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  PollBus(nullptr, "video");
  EXPECT_TRUE(listener.Take().empty());
}

TEST_F(PollBusTest, TheThreadWatchesBothPipelinesUntilItIsToldToEnd) {
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  {
    const std::lock_guard lock(g_mutex);
    *g_videoPipeline = std::move(pipeline_);
    *g_audioPipeline = LaunchPipeline("fakesrc ! fakesink");
    PostError(g_audioPipeline->get(), "sound");
    PostError(g_videoPipeline->get(), "picture");
  }
  g_busThreadRunning.store(true);
  std::thread thread(BusThread);
  for (int i = 0; i < 300 && g_gstBusErrors.Get() < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  g_busThreadRunning.store(false);
  const auto told = std::chrono::steady_clock::now();
  thread.join();
  EXPECT_LT(std::chrono::steady_clock::now() - told,
            std::chrono::milliseconds(500));
  const auto events = listener.Take();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0]->reason, "video: picture");
  EXPECT_EQ(events[1]->reason, "audio: sound");
  EXPECT_NE(g_videoPipeline->get(), nullptr);
}

TEST_F(PollBusTest, TheEndOfTheThreadDoesNotWaitForTheEndOfItsRound) {
  constexpr int kTimes = 20;
  auto total = std::chrono::steady_clock::duration::zero();
  for (int i = 0; i < kTimes; ++i) {
    g_busThreadRunning.store(true);
    *g_busThread = std::thread(BusThread);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const auto told = std::chrono::steady_clock::now();
    EndBusThread();
    total += std::chrono::steady_clock::now() - told;
    EXPECT_FALSE(g_busThread->joinable());
  }
  // It would be 90 ms each if it slept on.
  EXPECT_LT(total, kTimes * std::chrono::milliseconds(45));
}

TEST_F(PollBusTest, TheEndOfNoThreadIsNothing) {
  EndBusThread();
  EXPECT_FALSE(g_busThreadRunning.load());
}

}  // namespace
}  // namespace linux_capture
