#include "launch_boundary/x11_picture_hold.h"

#include <atomic>
#include <utility>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

// A window that is being resized or moved is refused for single pictures; the
// host hears only of what a viewer notices.
constexpr gint64 kLastingRefusalUs = 500'000;

// Monotonic time of the first refusal since the last good picture, or 0.
std::atomic<gint64> g_refusedSinceUs{0};

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

bool g_isRefusalReported GUARDED_BY(g_mutex) = false;
const PictureRefusal* g_refusal GUARDED_BY(g_mutex) = &kWindowRefusal;

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

GstPadProbeReturn OnPictureRead(GstPad* /*pad*/, PassingBuffer& picture) {
  GstBuffer* buffer = picture.get();
  if (!std::exchange(t_isPictureRefused, false)) {
    g_refusedSinceUs.store(0);
    t_lastPicture.reset(gst_buffer_ref(buffer));
    return GST_PAD_PROBE_OK;
  }
  gint64 none = 0;
  g_refusedSinceUs.compare_exchange_strong(none, g_get_monotonic_time());
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

void HoldPicturesOf(GstElement* source) REQUIRES(g_mutex) {
  const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
  AddBufferProbe(pad.get(), OnPictureRead);
  guint64 window = 0;
  g_object_get(source, "xid", &window, nullptr);
  g_refusal = window != 0 ? &kWindowRefusal : &kRectangleRefusal;
  if (window == 0) {
    AddUpstreamQueryProbe(pad.get(), OnCapsQuery);
  }
}

}  // namespace

void BeginPictureHold() {
  g_refusedSinceUs.store(0);
  g_isRefusalReported = false;
}

void NoteRefusedPicture() noexcept { t_isPictureRefused = true; }

void ReleaseHeldPicture() noexcept { t_lastPicture.reset(); }

void HoldRefusedPictures(GstElement* pipeline) {
  ForEachElementOf(pipeline, "ximagesrc", HoldPicturesOf);
}

const char* PostRefusedPictures(GstElement* pipeline) {
  const gint64 sinceUs = g_refusedSinceUs.load();
  if (sinceUs == 0) {
    g_isRefusalReported = false;
    return nullptr;
  }
  if (g_isRefusalReported) return g_refusal->code;
  if (pipeline == nullptr ||
      g_get_monotonic_time() - sinceUs < kLastingRefusalUs) {
    return nullptr;
  }
  g_isRefusalReported = true;
  PostElementError(pipeline, GST_RESOURCE_ERROR_READ, g_refusal->text,
                   g_refusal->code);
  return g_refusal->code;
}

}  // namespace linux_capture
