#include "launch_boundary/mix_order.h"

#include "base/gst_handles.h"
#include "base/pad_probe.h"

namespace linux_capture {
namespace {

GstClockTime MixDuration(GstBuffer* buffer) {
  constexpr guint64 kBytesPerSecond = guint64{48'000} * 2 * 2;
  return gst_util_uint64_scale(gst_buffer_get_size(buffer), GST_SECOND,
                               kBytesPerSecond);
}

// `end` is where the mix ends so far.
void KeepMixInOrder(PassingBuffer& passing, GstClockTime& end) {
  GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return;
  const GstClockTime duration = MixDuration(buffer);
  if (GST_BUFFER_PTS(buffer) < end) {
    buffer = passing.MakeWritable();
    GST_BUFFER_PTS(buffer) = end;
    GST_BUFFER_DURATION(buffer) = duration;
  }
  end = GST_BUFFER_PTS(buffer) + duration;
}

}  // namespace

void OrderMix(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  const GstPadPtr pad(gst_element_get_static_pad(mixer.get(), "src"));
  if (!pad) return;
  AddBufferProbe(pad.get(), [end = GstClockTime{GST_USECOND}](
                                GstPad*, PassingBuffer& buffer) mutable {
    KeepMixInOrder(buffer, end);
    return GST_PAD_PROBE_OK;
  });
}

}  // namespace linux_capture
