#ifndef LINUX_CAPTURE_BASE_PAD_PROBE_H_
#define LINUX_CAPTURE_BASE_PAD_PROBE_H_

#include <gst/gst.h>

#include <memory>
#include <utility>

#include "base/gst_callback.h"
#include "base/gst_handles.h"

namespace linux_capture {

// The buffer that passes a probe, which owns it meanwhile.
class PassingBuffer {
 public:
  explicit PassingBuffer(GstPadProbeInfo* info) noexcept : info_(info) {}

  [[nodiscard]] GstBuffer* get() const noexcept {
    return GST_PAD_PROBE_INFO_BUFFER(info_);
  }

  // A copy goes on in its place where somebody else holds it too.
  GstBuffer* MakeWritable() noexcept {
    GstBuffer* writable = gst_buffer_make_writable(get());
    info_->data = writable;
    return writable;
  }

  // The same where the memory is lent: a pool refills it once the original is
  // released, which the copy keeps.
  GstBuffer* MakeWritableAndKeep() noexcept {
    if (gst_buffer_is_writable(get()) == FALSE) {
      GstBufferPtr copy(gst_buffer_copy(get()));
      gst_buffer_add_parent_buffer_meta(copy.get(), get());
      Replace(std::move(copy));
    }
    return get();
  }

  void Replace(GstBufferPtr other) noexcept {
    const GstBufferPtr before(get());
    info_->data = other.release();
  }

  // Takes it out; the probe answers GST_PAD_PROBE_HANDLED, and whoever pushed
  // the buffer is told `Answer`.
  [[nodiscard]] GstBufferPtr Take() noexcept {
    GstBufferPtr taken(get());
    info_->data = nullptr;
    return taken;
  }
  void Answer(GstFlowReturn flow) noexcept {
    GST_PAD_PROBE_INFO_FLOW_RETURN(info_) = flow;
  }

 private:
  GstPadProbeInfo* info_;
};

template <typename Closure>
GstPadProbeReturn RunBufferProbe(GstPad* pad, GstPadProbeInfo* info,
                                 gpointer data) {
  PassingBuffer buffer(info);
  return (*static_cast<Closure*>(data))(pad, buffer);
}

template <typename Closure>
GstPadProbeReturn RunQueryProbe(GstPad* pad, GstPadProbeInfo* info,
                                gpointer data) {
  return (*static_cast<Closure*>(data))(pad, GST_PAD_PROBE_INFO_QUERY(info));
}

template <typename Closure>
void DeleteClosure(gpointer data) {
  const std::unique_ptr<Closure> owner(static_cast<Closure*>(data));
}

// Calls `onBuffer(GstPad*, PassingBuffer&)` for every buffer that passes the
// pad, on its streaming thread, as long as the pad lives. What the closure
// holds is its own.
template <typename Closure>
void AddBufferProbe(GstPad* pad, Closure onBuffer) {
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER,
                    NoThrow<&RunBufferProbe<Closure>>,
                    std::make_unique<Closure>(std::move(onBuffer)).release(),
                    NoThrow<&DeleteClosure<Closure>>);
}

// The same for `onQuery(GstPad*, GstQuery*)` and the queries of the elements
// behind the pad.
template <typename Closure>
void AddUpstreamQueryProbe(GstPad* pad, Closure onQuery) {
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_QUERY_UPSTREAM,
                    NoThrow<&RunQueryProbe<Closure>>,
                    std::make_unique<Closure>(std::move(onQuery)).release(),
                    NoThrow<&DeleteClosure<Closure>>);
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_PAD_PROBE_H_
