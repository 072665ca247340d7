#include "launch_boundary/pipeline_launch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/stage_lines.h"

namespace linux_capture {
namespace {

class PlayedPipeline {
 public:
  explicit PlayedPipeline(const std::string& text)
      : pipeline_(LaunchPipeline(text)) {}
  PlayedPipeline(const PlayedPipeline&) = delete;
  PlayedPipeline& operator=(const PlayedPipeline&) = delete;
  ~PlayedPipeline() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
  [[nodiscard]] GstElement* get() const { return pipeline_.get(); }

 private:
  GstElementPtr pipeline_;
};

TEST(LaunchPipelineTest, ALaunchedPipelineIsInNullAndOwned) {
  const GstElementPtr pipeline = LaunchPipeline("fakesrc ! fakesink");
  ASSERT_NE(pipeline, nullptr);
  EXPECT_EQ(GST_STATE(pipeline.get()), GST_STATE_NULL);
  EXPECT_FALSE(g_object_is_floating(pipeline.get()));
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(pipeline.get()), 1);
}

TEST(LaunchPipelineTest, AMissingElementIsReported) {
  EXPECT_EQ(MessageOf([] { LaunchPipeline("nosuchelement ! fakesink"); }),
            "no element \"nosuchelement\"");
}

TEST(LaunchPipelineTest, AMalformedOrEmptyTextIsReported) {
  EXPECT_NE(MessageOf([] { LaunchPipeline(""); }), "");
  EXPECT_NE(MessageOf([] { LaunchPipeline("fakesrc ! ! fakesink"); }), "");
}

TEST(LaunchPipelineTest, APartlyParsedPipelineIsNeverUsed) {
  EXPECT_NE(MessageOf([] {
              LaunchPipeline("fakesrc no-such-property=1 ! fakesink");
            }).find("no-such-property"),
            std::string::npos);
  EXPECT_NE(
      MessageOf([] { LaunchPipeline("fakesrc num-buffers=many ! fakesink"); }),
      "");
}

TEST(SetPlayingTest, EveryStepWritesItsStage) {
  const PlayedPipeline pipeline(
      "fakesrc is-live=true ! fakesink async=false sync=false");
  const std::vector<std::string> stages = StagesDuring(
      [&] { SetPlayingOrThrow(pipeline.get(), "video pipeline"); });
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[0], "video pipeline:set-state-playing:begin");
  EXPECT_EQ(stages[1].rfind("video pipeline:set-state-playing:result=", 0), 0U);
  EXPECT_EQ(stages[2], "video pipeline:get-state:begin");
  EXPECT_EQ(stages[3].rfind("video pipeline:get-state:result=", 0), 0U);
  EXPECT_NE(stages[3].find(":state=PLAYING:pending=VOID_PENDING"),
            std::string::npos)
      << stages[3];
}

TEST(SetPlayingTest, AnImmediateChangeIsASuccess) {
  const PlayedPipeline pipeline("fakesrc ! fakesink async=false");
  const std::vector<std::string> stages = StagesDuring(
      [&] { SetPlayingOrThrow(pipeline.get(), "audio pipeline"); });
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[1], "audio pipeline:set-state-playing:result=1");
  EXPECT_EQ(stages[3],
            "audio pipeline:get-state:result=1:state=PLAYING:"
            "pending=VOID_PENDING");
}

TEST(SetPlayingTest, AnImmediateFailureIsReported) {
  const PlayedPipeline pipeline(
      "filesrc location=/nonexistent/source ! fakesink");
  EXPECT_EQ(
      MessageOf([&] { SetPlayingOrThrow(pipeline.get(), "video pipeline"); }),
      "video pipeline failed to enter PLAYING state");
}

TEST(SetPlayingTest, AFailureWhileWaitingIsReported) {
  // Without data the change stays under way until it is aborted.
  const PlayedPipeline pipeline("appsrc ! fakesink");
  std::atomic<bool> done{false};
  std::thread aborter([&] {
    while (!done.load()) {
      if (GST_STATE_PENDING(pipeline.get()) == GST_STATE_PLAYING) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        gst_element_abort_state(pipeline.get());
        return;
      }
      std::this_thread::yield();
    }
  });
  EXPECT_EQ(
      MessageOf([&] { SetPlayingOrThrow(pipeline.get(), "audio pipeline"); }),
      "audio pipeline reported GStreamer state-change failure");
  done.store(true);
  aborter.join();
}

TEST(SetPlayingTest, AChangeStillUnderWayAfterFiveSecondsIsASuccess) {
  const PlayedPipeline pipeline("appsrc ! fakesink");
  const auto before = std::chrono::steady_clock::now();
  const std::vector<std::string> stages = StagesDuring(
      [&] { SetPlayingOrThrow(pipeline.get(), "video pipeline"); });
  const auto waited = std::chrono::steady_clock::now() - before;
  EXPECT_GE(waited, std::chrono::milliseconds(4900));
  EXPECT_LT(waited, std::chrono::seconds(8));
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[1], "video pipeline:set-state-playing:result=2");
  EXPECT_EQ(stages[3].rfind("video pipeline:get-state:result=2:", 0), 0U)
      << stages[3];
}

}  // namespace
}  // namespace linux_capture
