#include "launch_boundary/held_ending.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/watched_sources.h"

namespace linux_capture {
namespace {

// What the watch of the daemon would tell is not needed: there is none here.
class HeldEndingTest : public testing::Test {
 protected:
  void SetUp() override {
    WatchPipeWireSources(pipeline_.get());
    HoldFormatEndings(pipeline_.get());
    ending_ = WatchOf(pipeline_.get())->ending.get();
    ASSERT_NE(ending_, nullptr);
  }

  void Refuse() {
    GST_ELEMENT_ERROR(source_.get(), RESOURCE, NOT_FOUND,
                      ("stream error: unhandled format"), ("(null)"));
  }

  void FailWith(GstFlowReturn flow) {
    GST_ELEMENT_FLOW_ERROR(source_.get(), flow);
  }

  void End() {
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_post(bus.get(), gst_message_new_eos(GST_OBJECT(pipeline_.get())));
  }

  // What has come out on the bus, by the first word of each kind.
  std::vector<std::string> Told() {
    std::vector<std::string> told;
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    while (const GstMessagePtr message{gst_bus_pop_filtered(
        bus.get(),
        static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS))}) {
      told.emplace_back(GST_MESSAGE_TYPE_NAME(message.get()));
    }
    return told;
  }

  GstElementPtr pipeline_ = LaunchPipeline("pipewiresrc name=in ! fakesink");
  GstElementPtr source_ = FindElement(pipeline_.get(), "in");
  HeldEnding* ending_ = nullptr;
};

using Texts = std::vector<std::string>;

TEST_F(HeldEndingTest, HoldsWhatFollowsAFormatThatIsRefused) {
  Refuse();
  FailWith(GST_FLOW_ERROR);
  End();
  EXPECT_EQ(Told(), Texts{});
  EXPECT_TRUE(ending_->heldSince());
  EXPECT_TRUE(ending_->isFormatRefused());
}

TEST_F(HeldEndingTest, HoldsTheEndOfASourceThatHasNoFormatAnyMore) {
  FailWith(GST_FLOW_NOT_NEGOTIATED);
  End();
  EXPECT_EQ(Told(), Texts{});
  EXPECT_TRUE(ending_->heldSince());
  EXPECT_FALSE(ending_->isFormatRefused());
}

TEST_F(HeldEndingTest, LetsAllGoOnInItsOrderOnceItWasSomethingElse) {
  Refuse();
  FailWith(GST_FLOW_ERROR);
  End();
  ending_->Release(pipeline_.get());
  EXPECT_EQ(Told(), (Texts{"error", "error", "eos"}));
  EXPECT_FALSE(ending_->heldSince());
  Refuse();
  EXPECT_EQ(Told(), Texts{"error"});
}

TEST_F(HeldEndingTest, DropsWhatStillFollowsAnotherFormat) {
  Refuse();
  ending_->Drop();
  FailWith(GST_FLOW_ERROR);
  End();
  EXPECT_EQ(Told(), Texts{});
  EXPECT_FALSE(ending_->heldSince());
}

TEST_F(HeldEndingTest, LeavesEveryOtherEndAlone) {
  End();
  FailWith(GST_FLOW_ERROR);
  const GstElementPtr sink = FindElement(pipeline_.get(), "fakesink0");
  GST_ELEMENT_FLOW_ERROR((sink ? sink : pipeline_).get(),
                         GST_FLOW_NOT_NEGOTIATED);
  EXPECT_EQ(Told(), (Texts{"eos", "error", "error"}));
  EXPECT_FALSE(ending_->heldSince());
}

TEST_F(HeldEndingTest, NeverHoldsBackAnotherError) {
  Refuse();
  PostElementError(pipeline_.get(), GST_RESOURCE_ERROR_NOT_FOUND,
                   "PipeWire target 7 went away", error_code::kSourceLost);
  EXPECT_EQ(Told(), Texts{"error"});
}

TEST_F(HeldEndingTest, GoesWithItsPipelineWhileSomethingIsHeld) {
  Refuse();
  End();
  GWeakRef reference;
  g_weak_ref_init(&reference, pipeline_.get());
  source_.reset();
  pipeline_.reset();
  EXPECT_EQ(g_weak_ref_get(&reference), nullptr);
  g_weak_ref_clear(&reference);
}

}  // namespace
}  // namespace linux_capture
