#include "support/app_pipeline.h"

#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {

GstBufferPtr MakeBuffer(const std::vector<std::uint8_t>& bytes,
                        GstClockTime pts, GstClockTime duration) {
  GstBufferPtr buffer(gst_buffer_new_allocate(nullptr, bytes.size(), nullptr));
  gst_buffer_fill(buffer.get(), 0, bytes.data(), bytes.size());
  GST_BUFFER_PTS(buffer.get()) = pts;
  GST_BUFFER_DURATION(buffer.get()) = duration;
  return buffer;
}

AppPipeline::AppPipeline(const std::string& caps)
    : pipeline_(LaunchPipeline("appsrc name=source format=time caps=" + caps +
                               " ! appsink name=sink sync=false")),
      source_(FindElement(pipeline_.get(), "source")),
      sink_(FindElement(pipeline_.get(), "sink")) {
  EXPECT_NE(gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING),
            GST_STATE_CHANGE_FAILURE);
}

AppPipeline::~AppPipeline() {
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
}

void AppPipeline::Push(GstBufferPtr buffer) {
  // The only reference is passed on: nothing has a reason to copy the memory.
  EXPECT_EQ(gst_app_src_push_buffer(reinterpret_cast<GstAppSrc*>(source_.get()),
                                    buffer.release()),
            GST_FLOW_OK);
}

void AppPipeline::EndStream() {
  EXPECT_EQ(
      gst_app_src_end_of_stream(reinterpret_cast<GstAppSrc*>(source_.get())),
      GST_FLOW_OK);
}

}  // namespace linux_capture
