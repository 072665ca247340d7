#include "base/element_error.h"

#include <gtest/gtest.h>

#include <string>

#include "base/coded_error.h"
#include "launch_boundary/pipeline_launch.h"
#include "support/capture_fixture.h"

namespace linux_capture {
namespace {

class ElementErrorTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    pipeline_ = LaunchPipeline("fakesrc ! fakesink");
  }

  GstMessagePtr TakeError() {
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    return GstMessagePtr(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR));
  }

  GstElementPtr pipeline_;
};

TEST_F(ElementErrorTest, AnErrorOfOurOwnKeepsItsTextAndItsCode) {
  PostElementError(pipeline_.get(), GST_RESOURCE_ERROR_READ, "it has gone",
                   error_code::kSourceLost);
  const GstMessagePtr message = TakeError();
  ASSERT_TRUE(message);
  GError* rawError = nullptr;
  gst_message_parse_error(message.get(), &rawError, nullptr);
  const GErrorPtr error(rawError);
  EXPECT_STREQ(error->message, "it has gone");
  EXPECT_EQ(CodeOfElementError(message.get()), "source-lost");
}

TEST_F(ElementErrorTest, AnErrorOfAnElementIsOneOfThePipeline) {
  const GErrorPtr error(g_error_new_literal(
      GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT, "unhandled format"));
  const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
  gst_bus_post(bus.get(), gst_message_new_error(GST_OBJECT(pipeline_.get()),
                                                error.get(), "debug"));
  const GstMessagePtr message = TakeError();
  ASSERT_TRUE(message);
  EXPECT_EQ(CodeOfElementError(message.get()), "pipeline-error");
}

TEST_F(ElementErrorTest, DetailsOfAnElementAreNoCode) {
  const GErrorPtr error(g_error_new_literal(
      GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "stopped"));
  const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
  gst_bus_post(bus.get(), gst_message_new_error_with_details(
                              GST_OBJECT(pipeline_.get()), error.get(), nullptr,
                              gst_structure_new("details", "flow-return",
                                                G_TYPE_INT, -5, nullptr)));
  EXPECT_EQ(CodeOfElementError(TakeError().get()), "pipeline-error");
}

}  // namespace
}  // namespace linux_capture
