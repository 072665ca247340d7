#ifndef LINUX_CAPTURE_BASE_GST_HANDLES_H_
#define LINUX_CAPTURE_BASE_GST_HANDLES_H_

#include <gst/gst.h>
#include <gst/video/video.h>

#include <memory>
#include <string>

#include "base/glib_handles.h"

namespace linux_capture {

// Owners of GStreamer references, beside those of GLib's. Each is made of a
// reference that the caller already has (transfer full).
struct GstObjectDeleter {
  void operator()(gpointer object) const noexcept { gst_object_unref(object); }
};
struct GstBufferDeleter {
  void operator()(GstBuffer* buffer) const noexcept {
    gst_buffer_unref(buffer);
  }
};
struct GstCapsDeleter {
  void operator()(GstCaps* caps) const noexcept { gst_caps_unref(caps); }
};
struct GstSampleDeleter {
  void operator()(GstSample* sample) const noexcept {
    gst_sample_unref(sample);
  }
};
struct GstMessageDeleter {
  void operator()(GstMessage* message) const noexcept {
    gst_message_unref(message);
  }
};
struct GstStructureDeleter {
  void operator()(GstStructure* structure) const noexcept {
    gst_structure_free(structure);
  }
};
struct GstIteratorDeleter {
  void operator()(GstIterator* iterator) const noexcept {
    gst_iterator_free(iterator);
  }
};

using GstElementPtr = std::unique_ptr<GstElement, GstObjectDeleter>;
using GstElementFactoryPtr =
    std::unique_ptr<GstElementFactory, GstObjectDeleter>;
using GstPluginFeaturePtr = std::unique_ptr<GstPluginFeature, GstObjectDeleter>;
using GstPadPtr = std::unique_ptr<GstPad, GstObjectDeleter>;
using GstBusPtr = std::unique_ptr<GstBus, GstObjectDeleter>;
using GstBufferPtr = std::unique_ptr<GstBuffer, GstBufferDeleter>;
using GstCapsPtr = std::unique_ptr<GstCaps, GstCapsDeleter>;
using GstSamplePtr = std::unique_ptr<GstSample, GstSampleDeleter>;
using GstMessagePtr = std::unique_ptr<GstMessage, GstMessageDeleter>;
using GstStructurePtr = std::unique_ptr<GstStructure, GstStructureDeleter>;
using GstIteratorPtr = std::unique_ptr<GstIterator, GstIteratorDeleter>;

inline GstElementPtr AdoptElement(GstElement* element) noexcept {
  return GstElementPtr(element);
}

// The element of that name inside `pipeline`, or null.
inline GstElementPtr FindElement(GstElement* pipeline,
                                 const std::string& name) {
  if (pipeline == nullptr || !GST_IS_BIN(pipeline)) return nullptr;
  return AdoptElement(gst_bin_get_by_name(GST_BIN(pipeline), name.c_str()));
}

// A buffer mapped in one piece as long as this object lives.
template <GstMapFlags kFlags, typename Byte>
class MappedBuffer {
 public:
  explicit MappedBuffer(GstBuffer* buffer) noexcept : buffer_(buffer) {
    mapped_ = gst_buffer_map(buffer_, &info_, kFlags) != FALSE;
  }
  MappedBuffer(const MappedBuffer&) = delete;
  MappedBuffer& operator=(const MappedBuffer&) = delete;
  ~MappedBuffer() {
    if (mapped_) gst_buffer_unmap(buffer_, &info_);
  }

  [[nodiscard]] bool ok() const noexcept { return mapped_; }
  [[nodiscard]] Byte* data() const noexcept { return info_.data; }
  [[nodiscard]] gsize size() const noexcept { return info_.size; }

 private:
  GstBuffer* buffer_;
  GstMapInfo info_ = GST_MAP_INFO_INIT;
  bool mapped_ = false;
};

using ReadableBuffer = MappedBuffer<GST_MAP_READ, const guint8>;
using WritableBuffer = MappedBuffer<GST_MAP_WRITE, guint8>;

// A video frame mapped as long as this object lives.
class MappedVideoFrame {
 public:
  MappedVideoFrame(const GstVideoInfo& info, GstBuffer* buffer,
                   GstMapFlags flags) noexcept {
    GstVideoInfo copy = info;
    mapped_ = gst_video_frame_map(&frame_, &copy, buffer, flags) != FALSE;
    // A picture that a source repeats after it became smaller still has its
    // old size; what the caps say is what everybody has room for.
    frame_.info.width = info.width;
    frame_.info.height = info.height;
  }
  MappedVideoFrame(const MappedVideoFrame&) = delete;
  MappedVideoFrame& operator=(const MappedVideoFrame&) = delete;
  ~MappedVideoFrame() {
    if (mapped_) gst_video_frame_unmap(&frame_);
  }

  [[nodiscard]] bool ok() const noexcept { return mapped_; }
  [[nodiscard]] GstVideoFrame& get() noexcept { return frame_; }
  [[nodiscard]] const GstVideoFrame& get() const noexcept { return frame_; }

 private:
  GstVideoFrame frame_{};
  bool mapped_ = false;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GST_HANDLES_H_
