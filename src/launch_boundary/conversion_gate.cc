#include "launch_boundary/conversion_gate.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

class ConversionGate {
 public:
  explicit ConversionGate(PictureBacklogs branches)
      : branches_(std::move(branches)) {}

  [[nodiscard]] bool LeavesOut(const GstBuffer* picture) {
    const GstClockTime time = GST_BUFFER_PTS(picture);
    if (!GST_CLOCK_TIME_IS_VALID(time)) return false;
    const GstClockTime last = std::exchange(last_, time);
    if (!GST_CLOCK_TIME_IS_VALID(last) || time <= last) return false;
    return std::all_of(branches_.begin(), branches_.end(),
                       [distance = time - last](const auto& branch) {
                         return branch->IsTooEarly(distance);
                       });
  }

 private:
  PictureBacklogs branches_;
  GstClockTime last_ = GST_CLOCK_TIME_NONE;
};

}  // namespace

void SpareConversions(GstElement* pipeline, const PictureBacklogs& branches) {
  if (branches.empty()) return;
  ForEachElementOf(pipeline, "videoconvert", [&](GstElement* converter) {
    const auto gate = std::make_shared<ConversionGate>(branches);
    const GstPadPtr pad(gst_element_get_static_pad(converter, "sink"));
    // Behind what else is done to a picture in front of it, which may count.
    const GstPadPtr before(gst_pad_get_peer(pad.get()));
    if (!before) return;
    AddBufferProbe(before.get(), [gate](GstPad*, PassingBuffer& picture) {
      return gate->LeavesOut(picture.get()) ? GST_PAD_PROBE_DROP
                                            : GST_PAD_PROBE_OK;
    });
  });
}

}  // namespace linux_capture
