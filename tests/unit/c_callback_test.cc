#include "base/c_callback.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pad_probe.h"
#include "launch_boundary/pipeline_launch.h"

namespace linux_capture {
namespace {

int Half(int value) {
  if (value % 2 != 0) throw std::runtime_error("odd");
  return value / 2;
}
void ThrowAlways() { throw std::bad_alloc(); }
GstFlowReturn ThrowFlow() { throw std::bad_alloc(); }
GstPadProbeReturn ThrowProbe() { throw std::bad_alloc(); }
GstBusSyncReply ThrowReply() { throw std::bad_alloc(); }
GstCaps* ThrowCaps() { throw std::bad_alloc(); }

TEST(NoThrowTest, AnAnswerPasses) { EXPECT_EQ(NoThrow<&Half>(8), 4); }

TEST(NoThrowTest, AnExceptionBecomesTheAnswerThatDoesNoHarm) {
  EXPECT_EQ(NoThrow<&Half>(7), 0);
  NoThrow<&ThrowAlways>();
  EXPECT_EQ(NoThrow<&ThrowFlow>(), GST_FLOW_ERROR);
  EXPECT_EQ(NoThrow<&ThrowProbe>(), GST_PAD_PROBE_OK);
  EXPECT_EQ(NoThrow<&ThrowReply>(), GST_BUS_PASS);
  EXPECT_EQ(NoThrow<&ThrowCaps>(), nullptr);
}

TEST(ObjectDataTest, ItGoesWithTheObjectAndWithItsSuccessor) {
  const auto one = std::make_shared<int>(1);
  const auto two = std::make_shared<int>(2);
  {
    const GstElementPtr object(GST_ELEMENT(
        gst_object_ref_sink(gst_element_factory_make("fakesink", nullptr))));
    using Kept = std::shared_ptr<int>;
    EXPECT_EQ(ObjectData<Kept>(object.get(), "kept"), nullptr);
    SetObjectData(object.get(), "kept", std::make_unique<Kept>(one));
    SetObjectData(object.get(), "kept", std::make_unique<Kept>(two));
    EXPECT_EQ(one.use_count(), 1);
    EXPECT_EQ(**ObjectData<Kept>(object.get(), "kept"), 2);
  }
  EXPECT_EQ(two.use_count(), 1);
}

class ProbedPad {
 public:
  ProbedPad()
      : pipeline_(LaunchPipeline("fakesrc num-buffers=3 sizetype=fixed "
                                 "sizemax=4 ! fakesink name=sink")),
        pad_(gst_element_get_static_pad(
            FindElement(pipeline_.get(), "sink").get(), "sink")) {}
  ProbedPad(const ProbedPad&) = delete;
  ProbedPad& operator=(const ProbedPad&) = delete;
  ~ProbedPad() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }

  [[nodiscard]] GstPad* pad() const { return pad_.get(); }

  // Whether the pipeline came to the end of its stream.
  [[nodiscard]] bool Run() const {
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    const GstBusPtr bus(gst_element_get_bus(pipeline_.get()));
    const GstMessagePtr message(gst_bus_timed_pop_filtered(
        bus.get(), 10 * GST_SECOND,
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    return message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS;
  }

 private:
  GstElementPtr pipeline_;
  GstPadPtr pad_;
};

TEST(BufferProbeTest, ItSeesEveryBufferAndWhatItHoldsGoesWithThePad) {
  const auto count = std::make_shared<int>(0);
  {
    const ProbedPad probed;
    AddBufferProbe(probed.pad(), [count](GstPad*, PassingBuffer& buffer) {
      EXPECT_EQ(gst_buffer_get_size(buffer.get()), 4U);
      ++*count;
      return GST_PAD_PROBE_OK;
    });
    EXPECT_TRUE(probed.Run());
    EXPECT_EQ(*count, 3);
  }
  EXPECT_EQ(count.use_count(), 1);
}

TEST(BufferProbeTest, ABufferCanBeReplacedOrTaken) {
  const ProbedPad probed;
  int seen = 0;
  AddBufferProbe(probed.pad(), [at = 0](GstPad*,
                                        PassingBuffer& buffer) mutable {
    if (at++ == 1) {
      const GstBufferPtr taken = buffer.Take();
      buffer.Answer(GST_FLOW_OK);
      return GST_PAD_PROBE_HANDLED;
    }
    buffer.Replace(GstBufferPtr(gst_buffer_new_allocate(nullptr, 9, nullptr)));
    return GST_PAD_PROBE_OK;
  });
  AddBufferProbe(probed.pad(), [&seen](GstPad*, PassingBuffer& buffer) {
    EXPECT_EQ(gst_buffer_get_size(buffer.get()), 9U);
    ++seen;
    return GST_PAD_PROBE_OK;
  });
  EXPECT_TRUE(probed.Run());
  EXPECT_EQ(seen, 2);
}

TEST(BufferProbeTest, AnExceptionLetsTheBufferPass) {
  const ProbedPad probed;
  AddBufferProbe(probed.pad(), [](GstPad*, PassingBuffer&) {
    throw std::bad_alloc();
    return GST_PAD_PROBE_DROP;
  });
  EXPECT_TRUE(probed.Run());
}

}  // namespace
}  // namespace linux_capture
