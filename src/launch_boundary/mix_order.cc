#include "launch_boundary/mix_order.h"

#include <memory>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

// Where the mix ends so far; used by the mixer's own thread alone.
struct MixEnd {
  GstClockTime time = GST_USECOND;
};

GstClockTime MixDuration(GstBuffer* buffer) {
  constexpr guint64 kBytesPerSecond = guint64{48'000} * 2 * 2;
  return gst_util_uint64_scale(gst_buffer_get_size(buffer), GST_SECOND,
                               kBytesPerSecond);
}

GstPadProbeReturn KeepMixInOrder(GstPad* /*pad*/, GstPadProbeInfo* info,
                                 gpointer data) {
  GstClockTime& end = static_cast<MixEnd*>(data)->time;
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
  const GstClockTime duration = MixDuration(buffer);
  if (GST_BUFFER_PTS(buffer) < end) {
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = end;
    GST_BUFFER_DURATION(buffer) = duration;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
  }
  end = GST_BUFFER_PTS(buffer) + duration;
  return GST_PAD_PROBE_OK;
}

void DeleteMixEnd(gpointer data) {
  const std::unique_ptr<MixEnd> owner(static_cast<MixEnd*>(data));
}

}  // namespace

void OrderMix(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  const GstPadPtr pad(gst_element_get_static_pad(mixer.get(), "src"));
  if (!pad) return;
  gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, KeepMixInOrder,
                    std::make_unique<MixEnd>().release(), DeleteMixEnd);
}

}  // namespace linux_capture
