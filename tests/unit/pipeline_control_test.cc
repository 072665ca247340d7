#include "launch_boundary/pipeline_control.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/coded_error.h"
#include "launch_boundary/pipeline_launch.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

using std::chrono::milliseconds;

ExpendableThread::Deadline In(milliseconds time) {
  return std::chrono::steady_clock::now() + time;
}

class PlayedPipeline {
 public:
  explicit PlayedPipeline(const std::string& text)
      : pipeline_(LaunchPipeline(text)) {}
  PlayedPipeline(const PlayedPipeline&) = delete;
  PlayedPipeline& operator=(const PlayedPipeline&) = delete;
  ~PlayedPipeline() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
  [[nodiscard]] GstElement* get() const { return pipeline_.get(); }

  void Play(const std::string& name,
            milliseconds settling = StartPatience::kSettling) {
    PipelineControl control(name, PipelineKind::kScreenCast);
    StartPatience patience(StartPatience::kStart, settling);
    control.Play(pipeline_.get(), patience);
  }

 private:
  GstElementPtr pipeline_;
};

// A pipeline whose change of state does not come back before it is let go, as
// with a source whose server stands still.
class StuckPipeline {
 public:
  StuckPipeline() : pipeline_(LaunchPipeline("fakesrc ! fakesink")) {
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_sync_handler(
        bus.get(),
        [](GstBus*, GstMessage* message, gpointer data) {
          if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_STATE_CHANGED) {
            static_cast<std::shared_future<void>*>(data)->wait();
          }
          return GST_BUS_PASS;
        },
        std::make_unique<std::shared_future<void>>(letGo_.get_future().share())
            .release(),
        [](gpointer data) {
          const std::unique_ptr<std::shared_future<void>> owner(
              static_cast<std::shared_future<void>*>(data));
        });
    g_object_weak_ref(
        G_OBJECT(pipeline_.get()),
        [](gpointer data, GObject*) {
          static_cast<std::atomic<bool>*>(data)->store(true);
        },
        &isGone_);
  }
  GstElementPtr& get() { return pipeline_; }
  void LetGo() { letGo_.set_value(); }
  [[nodiscard]] bool GoesAway() const {
    const auto deadline = In(milliseconds(20'000));
    while (!isGone_.load() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    return isGone_.load();
  }
  [[nodiscard]] bool IsGone() const { return isGone_.load(); }

 private:
  std::promise<void> letGo_;
  std::atomic<bool> isGone_{false};
  GstElementPtr pipeline_;
};

TEST(PipelineControlTest, EveryStepWritesItsStage) {
  PlayedPipeline pipeline(
      "fakesrc is-live=true ! fakesink async=false sync=false");
  const std::vector<std::string> stages =
      StagesDuring([&] { pipeline.Play("video"); });
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[0], "video pipeline:set-state-playing:begin");
  EXPECT_EQ(stages[1].rfind("video pipeline:set-state-playing:result=", 0), 0U);
  EXPECT_EQ(stages[2], "video pipeline:get-state:begin");
  EXPECT_EQ(stages[3].rfind("video pipeline:get-state:result=", 0), 0U);
  EXPECT_NE(stages[3].find(":state=PLAYING:pending=VOID_PENDING"),
            std::string::npos)
      << stages[3];
}

TEST(PipelineControlTest, AnImmediateChangeIsASuccess) {
  PlayedPipeline pipeline("fakesrc ! fakesink async=false");
  const std::vector<std::string> stages =
      StagesDuring([&] { pipeline.Play("audio"); });
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[1], "audio pipeline:set-state-playing:result=1");
  EXPECT_EQ(stages[3],
            "audio pipeline:get-state:result=1:state=PLAYING:"
            "pending=VOID_PENDING");
}

TEST(PipelineControlTest, AnImmediateFailureIsReported) {
  PlayedPipeline pipeline("filesrc location=/nonexistent/source ! fakesink");
  EXPECT_EQ(MessageOf([&] { pipeline.Play("video"); }),
            "video pipeline failed to enter PLAYING state");
}

TEST(PipelineControlTest, AFailureWhileWaitingIsReported) {
  // Without data the change stays under way until it is aborted.
  PlayedPipeline pipeline("appsrc ! fakesink");
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
  EXPECT_EQ(MessageOf([&] { pipeline.Play("audio"); }),
            "audio pipeline reported GStreamer state-change failure");
  done.store(true);
  aborter.join();
}

TEST(PipelineControlTest, APipelineHasFiveSecondsToSettle) {
  EXPECT_EQ(StartPatience().settling(), std::chrono::seconds(5));
  EXPECT_LE(StartPatience().deadline(), In(std::chrono::seconds(5)));
}

TEST(PipelineControlTest, AChangeStillUnderWayWhenItsTimeIsOverIsASuccess) {
  PlayedPipeline pipeline("appsrc ! fakesink");
  const auto before = std::chrono::steady_clock::now();
  const std::vector<std::string> stages =
      StagesDuring([&] { pipeline.Play("video", milliseconds(200)); });
  const auto waited = std::chrono::steady_clock::now() - before;
  EXPECT_GE(waited, milliseconds(190));
  ASSERT_EQ(stages.size(), 4U);
  EXPECT_EQ(stages[1], "video pipeline:set-state-playing:result=2");
  EXPECT_EQ(stages[3].rfind("video pipeline:get-state:result=2:", 0), 0U)
      << stages[3];
}

TEST(PipelineControlTest, AStartThatDoesNotComeBackIsGivenUpAndNamed) {
  StuckPipeline pipeline;
  auto control =
      std::make_unique<PipelineControl>("video", PipelineKind::kScreenCast);
  StartPatience patience(milliseconds(200));
  const auto begin = std::chrono::steady_clock::now();
  std::string code;
  const std::vector<std::string> stages = StagesDuring([&] {
    try {
      control->Play(pipeline.get().get(), patience);
    } catch (const CodedError& error) {
      code = error.code();
      EXPECT_STREQ(error.what(), "video pipeline did not start in time");
    }
  });
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(code, "source-stalled");
  EXPECT_GE(waited, milliseconds(190));
  EXPECT_EQ(stages,
            (std::vector<std::string>{"video pipeline:set-state-playing:begin",
                                      "pipeline:video-start-given-up"}));
  EXPECT_FALSE(EndPipeline(control, pipeline.get(), In(milliseconds(20'000))))
      << "a pipeline that is known to be stuck is waited for";
  EXPECT_EQ(pipeline.get(), nullptr);
  auto used = std::make_shared<int>(0);
  const std::weak_ptr<int> seen = used;
  control->Retire(std::move(used));
  control.reset();
  EXPECT_FALSE(pipeline.IsGone());
  EXPECT_FALSE(seen.expired());
  pipeline.LetGo();
  EXPECT_TRUE(pipeline.GoesAway());
  const auto deadline = In(milliseconds(20'000));
  while (!seen.expired() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_TRUE(seen.expired());
}

// Another JavaScript thread that waits as long as this lives.
template <typename Work>
void WhileSomebodyWaits(WaitingCallers& callers, Work work) {
  const WaitingCallers::Caller caller(callers);
  work();
}

TEST(PipelineControlTest, AStartThatIsHeldUpGivesWayToWhoEndsIt) {
  StuckPipeline pipeline;
  auto control =
      std::make_unique<PipelineControl>("video", PipelineKind::kScreenCast);
  StartPatience patience(milliseconds(60'000));
  std::string code;
  WhileSomebodyWaits(g_controlCallers, [&] {
    try {
      control->Play(pipeline.get().get(), patience);
    } catch (const CodedError& error) {
      code = error.code();
    }
  });
  EXPECT_EQ(code, "start-interrupted");
  EXPECT_LT(In(milliseconds(0)), patience.deadline());
  EXPECT_FALSE(EndPipeline(control, pipeline.get(), In(milliseconds(20'000))));
  control->Retire(nullptr);
  control.reset();
  pipeline.LetGo();
  EXPECT_TRUE(pipeline.GoesAway());
}

TEST(PipelineControlTest, AStartThatIsHeldUpIsNotEndedByALook) {
  StuckPipeline pipeline;
  auto control =
      std::make_unique<PipelineControl>("video", PipelineKind::kScreenCast);
  StartPatience patience(milliseconds(2'000));
  std::string code;
  WhileSomebodyWaits(g_captureCallers, [&] {
    try {
      control->Play(pipeline.get().get(), patience);
    } catch (const CodedError& error) {
      code = error.code();
    }
  });
  EXPECT_EQ(code, "source-stalled");
  EXPECT_FALSE(EndPipeline(control, pipeline.get(), {}));
  control->Retire(nullptr);
  control.reset();
  pipeline.LetGo();
  EXPECT_TRUE(pipeline.GoesAway());
}

TEST(PipelineControlTest, APipelineThatSettlesHoldsUpNobody) {
  for (WaitingCallers* callers : {&g_controlCallers, &g_captureCallers}) {
    PlayedPipeline pipeline("appsrc ! fakesink");
    const auto before = std::chrono::steady_clock::now();
    std::vector<std::string> stages;
    WhileSomebodyWaits(*callers, [&] {
      stages =
          StagesDuring([&] { pipeline.Play("video", milliseconds(60'000)); });
    });
    EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(30'000));
    ASSERT_EQ(stages.size(), 4U);
    EXPECT_EQ(stages[3].rfind("video pipeline:get-state:result=2:", 0), 0U)
        << stages[3];
  }
}

TEST(StartPatienceTest, WhatOthersUseUpIsNotAllOfIt) {
  StartPatience patience(milliseconds(0));
  patience.KeepLeast();
  EXPECT_GT(patience.deadline(), In(milliseconds(500)));
  StartPatience whole(milliseconds(60'000));
  const auto deadline = whole.deadline();
  whole.KeepLeast();
  EXPECT_EQ(whole.deadline(), deadline);
}

TEST(WaitingCallersTest, OnlyThoseCountWhoWaitAndLongEnough) {
  WaitingCallers callers;
  EXPECT_FALSE(callers.HaveWaited(milliseconds(0)));
  {
    const WaitingCallers::Caller caller(callers);
    EXPECT_FALSE(callers.HaveWaited(milliseconds(60'000)));
    std::this_thread::sleep_for(milliseconds(2));
    EXPECT_TRUE(callers.HaveWaited(milliseconds(1)));
    const WaitingCallers::Caller second(callers);
    EXPECT_TRUE(callers.HaveWaited(milliseconds(1)));
  }
  EXPECT_FALSE(callers.HaveWaited(milliseconds(0)));
  Mutex mutex;
  {
    const CallerLock lock(mutex, callers);
    EXPECT_FALSE(callers.HaveWaited(milliseconds(0)));
    std::thread other([&] { const CallerLock later(mutex, callers); });
    const auto deadline = In(milliseconds(20'000));
    while (!callers.HaveWaited(milliseconds(0)) &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    EXPECT_TRUE(callers.HaveWaited(milliseconds(0)));
    mutex.unlock();
    other.join();
    mutex.lock();
  }
  EXPECT_FALSE(callers.HaveWaited(milliseconds(0)));
}

TEST(PipelineControlTest, AnEndWithinItsTimeLeavesNothing) {
  StuckPipeline pipeline;
  pipeline.LetGo();
  auto control =
      std::make_unique<PipelineControl>("audio", PipelineKind::kSound);
  StartPatience patience;
  control->Play(pipeline.get().get(), patience);
  EXPECT_TRUE(EndPipeline(control, pipeline.get(), In(milliseconds(20'000))));
  EXPECT_EQ(control, nullptr);
  EXPECT_TRUE(pipeline.IsGone());
}

TEST(PipelineControlTest, AnEndWithoutAControlIsAnEndToo) {
  std::unique_ptr<PipelineControl> control;
  GstElementPtr pipeline = LaunchPipeline("fakesrc ! fakesink");
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  EXPECT_TRUE(EndPipeline(control, pipeline, In(milliseconds(0))));
  EXPECT_EQ(pipeline, nullptr);
  EXPECT_TRUE(EndPipeline(control, pipeline, In(milliseconds(0))));
}

}  // namespace
}  // namespace linux_capture
