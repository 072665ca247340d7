#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_APP_PIPELINE_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_APP_PIPELINE_H_

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {

GstBufferPtr MakeBuffer(const std::vector<std::uint8_t>& bytes,
                        GstClockTime pts = GST_CLOCK_TIME_NONE,
                        GstClockTime duration = GST_CLOCK_TIME_NONE);

// A playing "appsrc ! appsink": what is pushed waits in the sink for the
// callback under test to pull it.
class AppPipeline {
 public:
  explicit AppPipeline(const std::string& caps);
  AppPipeline(const AppPipeline&) = delete;
  AppPipeline& operator=(const AppPipeline&) = delete;
  ~AppPipeline();

  void Push(GstBufferPtr buffer);
  void EndStream();
  [[nodiscard]] GstAppSink* sink() const {
    return reinterpret_cast<GstAppSink*>(sink_.get());
  }
  [[nodiscard]] GstElement* element() const { return pipeline_.get(); }

 private:
  GstElementPtr pipeline_;
  GstElementPtr source_;
  GstElementPtr sink_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_APP_PIPELINE_H_
