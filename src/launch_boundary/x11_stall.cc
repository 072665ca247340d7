#include "launch_boundary/x11_stall.h"

#include <atomic>
#include <memory>
#include <utility>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_picture_hold.h"

namespace linux_capture {
namespace {

// The source delivers at least one picture a second. Much more than that, or a
// machine that is short of time would be taken for a server that stands still.
constexpr gint64 kStallUs = 3'000'000;

constexpr const char* kStallKey = "linux-capture-x11-stall";

// Goes with its pipeline.
struct StallWatch {
  // Monotonic time of the last picture; 0 before the first one.
  std::atomic<gint64> lastUs{0};
  // The rest is guarded by the capture mutex.
  gint64 watchedSinceUs = 0;
  bool isReported = false;
};

bool IsLate(GstElement* source, GstBuffer* picture) {
  if (source == nullptr || !GST_BUFFER_PTS_IS_VALID(picture)) return false;
  const GstClockTime now = gst_element_get_current_running_time(source);
  return GST_CLOCK_TIME_IS_VALID(now) &&
         now > GST_BUFFER_PTS(picture) + kLongestFilledX11Gap;
}

}  // namespace

void WatchX11Stalls(GstElement* pipeline) {
  auto owned = std::make_unique<StallWatch>();
  StallWatch* watch = owned.get();
  // It outlives the pads: a pipeline lets go of its elements first.
  SetObjectData(pipeline, kStallKey, std::move(owned));
  ForEachElementOf(pipeline, "ximagesrc", [watch](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    AddBufferProbe(pad.get(), [watch](GstPad* from, PassingBuffer& picture) {
      watch->lastUs.store(g_get_monotonic_time());
      const GstElementPtr element(gst_pad_get_parent_element(from));
      if (!IsLate(element.get(), picture.get())) return GST_PAD_PROBE_OK;
      // What became of this one says nothing of the next.
      ForgetRefusedPicture();
      return GST_PAD_PROBE_DROP;
    });
  });
}

const char* PostX11Stall(GstElement* pipeline) {
  auto* watch = pipeline == nullptr
                    ? nullptr
                    : ObjectData<StallWatch>(pipeline, kStallKey);
  if (watch == nullptr || HasX11Failed(pipeline)) return nullptr;
  const gint64 nowUs = g_get_monotonic_time();
  if (watch->watchedSinceUs == 0) watch->watchedSinceUs = nowUs;
  const gint64 lastUs = watch->lastUs.load();
  if (nowUs - (lastUs != 0 ? lastUs : watch->watchedSinceUs) < kStallUs) {
    watch->isReported = false;
    return nullptr;
  }
  if (!std::exchange(watch->isReported, true)) {
    PostElementError(pipeline, GST_RESOURCE_ERROR_READ,
                     "the X server does not answer",
                     error_code::kDisplayStalled);
  }
  return error_code::kDisplayStalled;
}

}  // namespace linux_capture
