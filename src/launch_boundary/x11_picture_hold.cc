#include "launch_boundary/x11_picture_hold.h"

#include <atomic>
#include <memory>
#include <utility>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

// A window that is being resized or moved is refused for single pictures; the
// host hears only of what a viewer notices.
constexpr gint64 kLastingRefusalUs = 500'000;

struct PictureRefusal {
  const char* text;
  const char* code;
};
constexpr PictureRefusal kWindowRefusal{
    "the captured X11 window is hidden or partly off the screen: its last "
    "picture is repeated until it can be read again",
    error_code::kWindowHidden};
constexpr PictureRefusal kRectangleRefusal{
    "the captured rectangle is no longer inside the X11 screen: its last "
    "picture is repeated until it can be read again",
    error_code::kRectangleOffScreen};

// Goes with its pipeline.
struct PictureHold {
  const PictureRefusal* refusal = &kWindowRefusal;
  // Monotonic time of the first refusal since the last good picture, or 0.
  std::atomic<gint64> refusedSinceUs{0};
  bool isReported = false;  // guarded by the capture mutex
};

constexpr const char* kHoldKey = "linux-capture-picture-hold";

thread_local bool t_isPictureRefused = false;

// What the source's streaming thread has read last.
thread_local GstBufferPtr t_lastPicture;

// The last picture with the times of the refused one, or null when there is
// none of that size.
GstBufferPtr LastPictureAt(GstBuffer* refused) {
  if (!t_lastPicture || gst_buffer_get_size(t_lastPicture.get()) !=
                            gst_buffer_get_size(refused)) {
    return nullptr;
  }
  GstBufferPtr copy(gst_buffer_copy(t_lastPicture.get()));
  gst_buffer_copy_into(copy.get(), refused, GST_BUFFER_COPY_TIMESTAMPS, 0, 0);
  return copy;
}

GstPadProbeReturn OnPictureRead(PassingBuffer& picture, PictureHold& hold) {
  GstBuffer* buffer = picture.get();
  if (!std::exchange(t_isPictureRefused, false)) {
    hold.refusedSinceUs.store(0);
    t_lastPicture.reset(gst_buffer_ref(buffer));
    return GST_PAD_PROBE_OK;
  }
  gint64 none = 0;
  hold.refusedSinceUs.compare_exchange_strong(none, g_get_monotonic_time());
  if (GstBufferPtr last = LastPictureAt(buffer)) {
    picture.Replace(std::move(last));
  }
  return GST_PAD_PROBE_OK;
}

// The source notices a new size of the screen and negotiates anew; asked for
// its caps, it turns from a rectangle that does not fit any more to the whole
// screen. Once it has caps they are the answer.
GstPadProbeReturn OnCapsQuery(GstPad* pad, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS) return GST_PAD_PROBE_OK;
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps) return GST_PAD_PROBE_OK;
  GstCaps* filter = nullptr;
  gst_query_parse_caps(query, &filter);
  if (filter != nullptr) {
    caps.reset(
        gst_caps_intersect_full(filter, caps.get(), GST_CAPS_INTERSECT_FIRST));
  }
  gst_query_set_caps_result(query, caps.get());
  return GST_PAD_PROBE_HANDLED;
}

void HoldPicturesOf(GstElement* source, PictureHold* hold) {
  const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
  AddBufferProbe(pad.get(), [hold](GstPad*, PassingBuffer& picture) {
    return OnPictureRead(picture, *hold);
  });
  guint64 window = 0;
  g_object_get(source, "xid", &window, nullptr);
  hold->refusal = window != 0 ? &kWindowRefusal : &kRectangleRefusal;
  if (window == 0) {
    AddUpstreamQueryProbe(pad.get(), OnCapsQuery);
  }
}

}  // namespace

void NoteRefusedPicture() noexcept { t_isPictureRefused = true; }

void ForgetRefusedPicture() noexcept { t_isPictureRefused = false; }

void ReleaseHeldPicture() noexcept { t_lastPicture.reset(); }

void HoldRefusedPictures(GstElement* pipeline) {
  auto owned = std::make_unique<PictureHold>();
  PictureHold* hold = owned.get();
  // It outlives the pads: a pipeline lets go of its elements first.
  SetObjectData(pipeline, kHoldKey, std::move(owned));
  ForEachElementOf(pipeline, "ximagesrc", [hold](GstElement* source) {
    HoldPicturesOf(source, hold);
  });
}

const char* PostRefusedPictures(GstElement* pipeline) {
  auto* hold = pipeline == nullptr
                   ? nullptr
                   : ObjectData<PictureHold>(pipeline, kHoldKey);
  if (hold == nullptr) return nullptr;
  const gint64 sinceUs = hold->refusedSinceUs.load();
  if (sinceUs == 0) {
    hold->isReported = false;
    return nullptr;
  }
  if (hold->isReported) return hold->refusal->code;
  if (g_get_monotonic_time() - sinceUs < kLastingRefusalUs) return nullptr;
  hold->isReported = true;
  PostElementError(pipeline, GST_RESOURCE_ERROR_READ, hold->refusal->text,
                   hold->refusal->code);
  return hold->refusal->code;
}

}  // namespace linux_capture
