#include "pipewire_source.h"

#include <gst/allocators/gstdmabuf.h>
#include <gst/base/gstpushsrc.h>
#include <gst/video/video.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "base/gst_handles.h"
#include "base/unique_fd.h"
#include "changing_pictures.h"
#include "numbered_picture.h"
#include "switches.h"

namespace linux_capture::standins {
namespace {

using GstAllocatorPtr = std::unique_ptr<GstAllocator, GstObjectDeleter>;

struct SourceState {
  GstAllocatorPtr allocator{gst_dmabuf_allocator_new()};
  int width = SwitchValue("source-width", 640);
  int height = SwitchValue("source-height", 360);
  int rate = SwitchValue("source-rate", 30);
  // "changing-pictures": see changing_pictures.h.
  bool isChanging = IsSwitchedOn("changing-pictures");
  std::uint16_t number = 0;
};

struct PipeWireSource {
  GstPushSrc parent;
  SourceState state;
};

PipeWireSource* AsSource(gpointer object) {
  return static_cast<PipeWireSource*>(object);
}

GstPushSrcClass* g_parentClass = nullptr;

// From 1.24 on a dma-buf's format is told in the words of the kernel, and
// glupload takes no other. XR24 is BGRx.
bool TellsKernelFormats() {
  guint major = 0;
  guint minor = 0;
  guint micro = 0;
  guint nano = 0;
  gst_version(&major, &minor, &micro, &nano);
  return major > 1 || minor >= 24;
}

GstCaps* GetCaps(GstBaseSrc* source, GstCaps* /*filter*/) {
  // As the real one, which learns its format from the stream: what of this the
  // elements behind it can take depends on a GL context, which they have later.
  if (GST_STATE(source) == GST_STATE_NULL) {
    return gst_pad_get_pad_template_caps(GST_BASE_SRC_PAD(source));
  }
  const SourceState& state = AsSource(source)->state;
  if (state.isChanging) {
    return ChangingCaps(state.number, state.rate).release();
  }
  GstCaps* caps = gst_caps_new_simple(
      "video/x-raw", "format", G_TYPE_STRING, "BGRx", "width", G_TYPE_INT,
      state.width, "height", G_TYPE_INT, state.height, "framerate",
      GST_TYPE_FRACTION, state.rate, 1, nullptr);
  gst_caps_set_features_simple(caps,
                               gst_caps_features_new_single("memory:DMABuf"));
  if (TellsKernelFormats()) {
    gst_caps_set_simple(caps, "format", G_TYPE_STRING, "DMA_DRM", "drm-format",
                        G_TYPE_STRING, "XR24", nullptr);
  }
  return caps;
}

// A dma-buf by its type and its interface; a memory file as far as the kernel
// is concerned, which any driver without a GPU can map.
GstMemory* NewPictureMemory(const SourceState& state) {
  const auto pixels = static_cast<std::size_t>(state.width) *
                      static_cast<std::size_t>(state.height);
  const std::size_t size = pixels * sizeof(std::uint32_t);
  UniqueFd fd(memfd_create("standin-picture", MFD_CLOEXEC));
  if (ftruncate(fd.get(), static_cast<off_t>(size)) != 0) return nullptr;
  void* mapped =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
  if (mapped == MAP_FAILED) return nullptr;
  PaintNumberedPicture(state.number, state.width, state.height,
                       {static_cast<std::uint32_t*>(mapped), pixels});
  munmap(mapped, size);
  return gst_dmabuf_allocator_alloc(state.allocator.get(), fd.release(), size);
}

GstBufferPtr NumberedPicture(const SourceState& state) {
  GstMemory* memory = NewPictureMemory(state);
  if (memory == nullptr) return nullptr;
  GstBufferPtr buffer(gst_buffer_new());
  gst_buffer_append_memory(buffer.get(), memory);
  gst_buffer_add_video_meta(
      buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_BGRx,
      static_cast<guint>(state.width), static_cast<guint>(state.height));
  return buffer;
}

// The next picture in its own caps.
GstBufferPtr NextPicture(GstBaseSrc* source, const SourceState& state) {
  if (!state.isChanging) return NumberedPicture(state);
  const GstCapsPtr caps = ChangingCaps(state.number, state.rate);
  if (gst_base_src_set_caps(source, caps.get()) == FALSE) return nullptr;
  return ChangingPicture(state.number);
}

GstFlowReturn Create(GstPushSrc* source, GstBuffer** result) {
  SourceState& state = AsSource(source)->state;
  GstBufferPtr picture = NextPicture(GST_BASE_SRC(source), state);
  if (!picture) return GST_FLOW_ERROR;
  GstBuffer* buffer = picture.release();
  GST_BUFFER_PTS(buffer) =
      gst_util_uint64_scale_int(GST_SECOND, state.number, state.rate);
  GST_BUFFER_DURATION(buffer) = GST_SECOND / static_cast<guint>(state.rate);
  ++state.number;
  *result = buffer;
  return GST_FLOW_OK;
}

// The base class waits until a picture is due.
void GetTimes(GstBaseSrc* /*source*/, GstBuffer* buffer, GstClockTime* start,
              GstClockTime* end) {
  *start = GST_BUFFER_PTS(buffer);
  *end = *start + GST_BUFFER_DURATION(buffer);
}

void IgnoreProperty(GObject* /*object*/, guint /*id*/, const GValue* /*value*/,
                    GParamSpec* /*property*/) {}

void Finalize(GObject* object) {
  std::destroy_at(&AsSource(object)->state);
  G_OBJECT_CLASS(g_parentClass)->finalize(object);
}

GType DisconnectType() {
  static const GEnumValue kValues[] = {{0, "No action", "none"},
                                       {1, "Send EOS", "eos"},
                                       {2, "Raise error", "error"},
                                       {0, nullptr, nullptr}};
  static const GType kType =
      g_enum_register_static("StandinPipeWireDisconnect", kValues);
  return kType;
}

// Nothing here is acted on: the launch only has to find what it sets.
void InstallProperties(GObjectClass* objectClass) {
  constexpr auto kWritable = G_PARAM_WRITABLE;
  guint id = 0;
  const auto install = [&](GParamSpec* property) {
    g_object_class_install_property(objectClass, ++id, property);
  };
  install(
      g_param_spec_int("fd", nullptr, nullptr, -1, G_MAXINT, -1, kWritable));
  install(g_param_spec_string("path", nullptr, nullptr, nullptr, kWritable));
  install(g_param_spec_string("target-object", nullptr, nullptr, nullptr,
                              kWritable));
  install(
      g_param_spec_boolean("always-copy", nullptr, nullptr, FALSE, kWritable));
  install(g_param_spec_boolean("use-bufferpool", nullptr, nullptr, TRUE,
                               kWritable));
  install(g_param_spec_int("keepalive-time", nullptr, nullptr, 0, G_MAXINT, 0,
                           kWritable));
  install(g_param_spec_enum("on-disconnect", nullptr, nullptr, DisconnectType(),
                            0, kWritable));
  install(g_param_spec_boxed("stream-properties", nullptr, nullptr,
                             GST_TYPE_STRUCTURE, kWritable));
}

void InitClass(gpointer klass, gpointer /*data*/) {
  g_parentClass =
      static_cast<GstPushSrcClass*>(g_type_class_peek_parent(klass));
  auto* objectClass = static_cast<GObjectClass*>(klass);
  objectClass->set_property = IgnoreProperty;
  objectClass->finalize = Finalize;
  InstallProperties(objectClass);

  auto* elementClass = static_cast<GstElementClass*>(klass);
  gst_element_class_set_static_metadata(
      elementClass, "PipeWire source stand-in", "Source/Video",
      "Gives numbered pictures in dma-buf memory", "linux_capture_addon");
  const GstCapsPtr caps(
      gst_caps_from_string("video/x-raw(memory:DMABuf),format={BGRx,DMA_DRM};"
                           "video/x-raw,format={BGRx,RGBx}"));
  gst_element_class_add_pad_template(
      elementClass,
      gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps.get()));

  auto* sourceClass = static_cast<GstBaseSrcClass*>(klass);
  sourceClass->get_caps = GetCaps;
  sourceClass->get_times = GetTimes;
  static_cast<GstPushSrcClass*>(klass)->create = Create;
}

void InitInstance(GTypeInstance* instance, gpointer /*klass*/) {
  std::construct_at(&AsSource(instance)->state);
  auto* source = GST_BASE_SRC(instance);
  gst_base_src_set_live(source, TRUE);
  gst_base_src_set_format(source, GST_FORMAT_TIME);
}

}  // namespace

GType PipeWireSourceType() {
  static const GType kType = g_type_register_static_simple(
      GST_TYPE_PUSH_SRC, "StandinPipeWireSource", sizeof(GstPushSrcClass),
      InitClass, sizeof(PipeWireSource), InitInstance,
      static_cast<GTypeFlags>(0));
  return kType;
}

}  // namespace linux_capture::standins
