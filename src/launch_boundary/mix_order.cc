#include "launch_boundary/mix_order.h"

#include <memory>

#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pad_probe.h"

namespace linux_capture {
namespace {

constexpr const char* kMixKey = "linux-capture-mix-order";

// Used by the mixer's own thread alone while the pipeline runs. The pipelines
// of sound share one clock, so its times can be told from one to the next.
struct MixOrder {
  GstClockTime end = GST_USECOND;  // of the mix so far, in running time
  // Where its last buffer begins, and where that of the mix before this one
  // does, on the clock.
  GstClockTime lastBegin = GST_CLOCK_TIME_NONE;
  GstClockTime earlierBegin = GST_CLOCK_TIME_NONE;
};
using SharedMixOrder = std::shared_ptr<MixOrder>;

GstClockTime MixDuration(GstBuffer* buffer) {
  constexpr guint64 kBytesPerSecond = guint64{48'000} * 2 * 2;
  return gst_util_uint64_scale(gst_buffer_get_size(buffer), GST_SECOND,
                               kBytesPerSecond);
}

// Whether the mix before this one had all or most of what begins at `begin`.
bool WasMixedBefore(GstClockTime begin, MixOrder& order) {
  if (!GST_CLOCK_TIME_IS_VALID(order.earlierBegin)) return false;
  if (begin <= order.earlierBegin) return true;
  order.earlierBegin = GST_CLOCK_TIME_NONE;
  return false;
}

GstPadProbeReturn KeepMixInOrder(GstClockTime baseTime, PassingBuffer& passing,
                                 MixOrder& order) {
  GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
  const GstClockTime duration = MixDuration(buffer);
  if (GST_BUFFER_PTS(buffer) < order.end) {
    buffer = passing.MakeWritable();
    GST_BUFFER_PTS(buffer) = order.end;
    GST_BUFFER_DURATION(buffer) = duration;
  }
  order.end = GST_BUFFER_PTS(buffer) + duration;
  if (!GST_CLOCK_TIME_IS_VALID(baseTime)) return GST_PAD_PROBE_OK;
  const GstClockTime begin = baseTime + GST_BUFFER_PTS(buffer);
  if (WasMixedBefore(begin, order)) return GST_PAD_PROBE_DROP;
  order.lastBegin = begin;
  return GST_PAD_PROBE_OK;
}

MixOrder* MixOrderOf(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  auto* order =
      mixer ? ObjectData<SharedMixOrder>(mixer.get(), kMixKey) : nullptr;
  return order == nullptr ? nullptr : order->get();
}

}  // namespace

void OrderMix(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  const GstPadPtr pad(gst_element_get_static_pad(mixer.get(), "src"));
  if (!pad) return;
  auto order = std::make_shared<MixOrder>();
  SetObjectData(mixer.get(), kMixKey, std::make_unique<SharedMixOrder>(order));
  AddBufferProbe(pad.get(), [order](GstPad* from, PassingBuffer& buffer) {
    const GstElementPtr element(gst_pad_get_parent_element(from));
    if (!element) return GST_PAD_PROBE_OK;
    return KeepMixInOrder(gst_element_get_base_time(element.get()), buffer,
                          *order);
  });
}

void ContinueMix(GstElement* ended, GstElement* pipeline) {
  const MixOrder* before = MixOrderOf(ended);
  MixOrder* order = MixOrderOf(pipeline);
  if (before == nullptr || order == nullptr) return;
  // One that never had any sound hands on what it was to continue itself.
  order->earlierBegin = GST_CLOCK_TIME_IS_VALID(before->lastBegin)
                            ? before->lastBegin
                            : before->earlierBegin;
}

}  // namespace linux_capture
