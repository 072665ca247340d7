#include "support/unreadable_buffer.h"

namespace linux_capture {
namespace {

GstMemory* AllocateUnreadable(GstAllocator* allocator, gsize size,
                              GstAllocationParams* /*parameters*/) {
  auto* memory = static_cast<GstMemory*>(g_malloc0(sizeof(GstMemory)));
  gst_memory_init(memory, GST_MEMORY_FLAG_NO_SHARE, allocator, nullptr, size, 0,
                  0, size);
  return memory;
}

void FreeUnreadable(GstAllocator* /*allocator*/, GstMemory* memory) {
  g_free(memory);
}

gpointer RefuseToMap(GstMemory* /*memory*/, gsize /*size*/,
                     GstMapFlags /*flags*/) {
  return nullptr;
}

void InitUnreadableClass(gpointer allocatorClass, gpointer /*data*/) {
  auto* const typed = static_cast<GstAllocatorClass*>(allocatorClass);
  typed->alloc = AllocateUnreadable;
  typed->free = FreeUnreadable;
}

void InitUnreadableAllocator(GTypeInstance* instance, gpointer /*klass*/) {
  auto* const allocator = reinterpret_cast<GstAllocator*>(instance);
  allocator->mem_type = "unreadable";
  allocator->mem_map = RefuseToMap;
  GST_OBJECT_FLAG_SET(allocator, GST_ALLOCATOR_FLAG_CUSTOM_ALLOC);
}

GType UnreadableAllocatorType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_ALLOCATOR, "LinuxCaptureUnreadableAllocator",
      sizeof(GstAllocatorClass), InitUnreadableClass, sizeof(GstAllocator),
      InitUnreadableAllocator, static_cast<GTypeFlags>(0));
  return type;
}

}  // namespace

GstBufferPtr MakeUnreadableBuffer(gsize size, GstClockTime pts) {
  static GstAllocator* const allocator = GST_ALLOCATOR(
      gst_object_ref_sink(g_object_new(UnreadableAllocatorType(), nullptr)));
  GstBufferPtr buffer(gst_buffer_new());
  gst_buffer_append_memory(buffer.get(),
                           AllocateUnreadable(allocator, size, nullptr));
  GST_BUFFER_PTS(buffer.get()) = pts;
  return buffer;
}

}  // namespace linux_capture
