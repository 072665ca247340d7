#include "launch_boundary/pipeline_launch.h"

#include <gtest/gtest.h>

#include <string>

#include "support/stage_lines.h"

namespace linux_capture {
namespace {

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

}  // namespace
}  // namespace linux_capture
