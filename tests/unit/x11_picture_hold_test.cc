#include "launch_boundary/x11_picture_hold.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/x11_stall.h"

namespace linux_capture {
namespace {

// What comes out of an ximagesrc that is given its pictures by hand, with the
// repairs in the order of a capture. There is no X server.
class HeldPictures : public ::testing::Test {
 protected:
  void SetUp() override {
    pipeline_ = LaunchPipeline("ximagesrc name=screen ! fakesink name=sink");
    source_ = FindElement(pipeline_.get(), "screen");
    sink_ = FindElement(pipeline_.get(), "sink");
    gst_element_set_state(sink_.get(), GST_STATE_PAUSED);
    WatchX11Stalls(pipeline_.get());
    HoldRefusedPictures(pipeline_.get());
    pad_.reset(gst_element_get_static_pad(source_.get(), "src"));
    AddBufferProbe(pad_.get(), [this](GstPad*, PassingBuffer& picture) {
      std::uint8_t mark = 0;
      gst_buffer_extract(picture.get(), 0, &mark, 1);
      seen_.push_back(mark);
      return GST_PAD_PROBE_DROP;
    });
    // The source itself would look for its screen.
    gst_pad_set_activatemode_function(
        pad_.get(), [](GstPad*, GstObject*, GstPadMode, gboolean) -> gboolean {
          return TRUE;
        });
    gst_pad_set_active(pad_.get(), TRUE);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(pad_.get(), gst_event_new_stream_start("screen"));
    gst_pad_push_event(pad_.get(), gst_event_new_segment(&segment));
    clock_.reset(gst_system_clock_obtain());
    gst_element_set_clock(source_.get(), clock_.get());
    gst_element_set_base_time(source_.get(), 0);
    gst_element_set_start_time(source_.get(), GST_CLOCK_TIME_NONE);
  }
  void TearDown() override {
    ReleaseHeldPicture();
    gst_pad_set_active(pad_.get(), FALSE);
    gst_element_set_state(sink_.get(), GST_STATE_NULL);
    // Its messages hold the pipeline, which has never left the first state.
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_flushing(bus.get(), TRUE);
  }

  // A picture taken that long ago.
  void Push(std::uint8_t mark, GstClockTime age = 0) {
    GstBuffer* picture = gst_buffer_new_allocate(nullptr, 16, nullptr);
    gst_buffer_memset(picture, 0, mark, 16);
    GST_BUFFER_PTS(picture) = gst_clock_get_time(clock_.get()) - age;
    gst_pad_push(pad_.get(), picture);
  }

  GstElementPtr pipeline_;
  GstElementPtr source_;
  GstElementPtr sink_;
  GstPadPtr pad_;
  std::unique_ptr<GstClock, GstObjectDeleter> clock_;
  std::vector<std::uint8_t> seen_;
};

TEST_F(HeldPictures, ARefusedPictureIsReplacedByTheLastOne) {
  Push(1);
  NoteRefusedPicture();
  Push(2);
  Push(3);
  EXPECT_EQ(seen_, (std::vector<std::uint8_t>{1, 1, 3}));
}

TEST_F(HeldPictures, ARefusedPictureThatIsLateSaysNothingOfTheNext) {
  Push(1);
  NoteRefusedPicture();
  Push(2, 20 * GST_SECOND);
  Push(3);
  EXPECT_EQ(seen_, (std::vector<std::uint8_t>{1, 3}));
}

}  // namespace
}  // namespace linux_capture
