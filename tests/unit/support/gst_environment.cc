#include <gst/gst.h>
#include <gtest/gtest.h>

#include <memory>

namespace linux_capture {
namespace {

// Every test may use GStreamer.
class GstEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { gst_init(nullptr, nullptr); }
};

// GoogleTest takes ownership.
[[maybe_unused]] const ::testing::Environment* const kGstEnvironment =
    ::testing::AddGlobalTestEnvironment(
        std::make_unique<GstEnvironment>().release());

}  // namespace
}  // namespace linux_capture
