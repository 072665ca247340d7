#include "launch_boundary/source_fallback.h"

#include <gtest/gtest.h>

#include "base/gst_handles.h"
#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {
namespace {

TEST(SourceFallbackTest, EveryPipeWireSourceIsTiedToItsTarget) {
  const GstElementPtr pipeline = LaunchPipeline(
      "pipewiresrc name=one ! fakesink pipewiresrc name=two ! fakesink");
  ForbidSourceFallback(pipeline.get());
  for (const char* name : {"one", "two"}) {
    const GstElementPtr source = FindElement(pipeline.get(), name);
    ASSERT_NE(source, nullptr);
    GstStructure* raw = nullptr;
    g_object_get(source.get(), "stream-properties", &raw, nullptr);
    const GstStructurePtr properties(raw);
    ASSERT_NE(properties, nullptr);
    EXPECT_STREQ(
        gst_structure_get_string(properties.get(), "node.dont-fallback"),
        "true");
  }
}

TEST(SourceFallbackTest, APipelineWithoutPipeWireIsLeftAlone) {
  const GstElementPtr pipeline = LaunchPipeline("fakesrc ! fakesink");
  ForbidSourceFallback(pipeline.get());
  const GstElementPtr element = AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make("fakesrc", nullptr))));
  ForbidSourceFallback(element.get());
  SUCCEED();
}

}  // namespace
}  // namespace linux_capture
