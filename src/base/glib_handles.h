#ifndef LINUX_CAPTURE_BASE_GLIB_HANDLES_H_
#define LINUX_CAPTURE_BASE_GLIB_HANDLES_H_

#include <glib-object.h>

#include <memory>

namespace linux_capture {

// Owners of GLib's references and memory. Each is made of what the caller
// already has (transfer full).
struct GObjectDeleter {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
struct GVariantDeleter {
  void operator()(GVariant* variant) const noexcept {
    g_variant_unref(variant);
  }
};
struct GTypeClassDeleter {
  void operator()(GTypeClass* typeClass) const noexcept {
    g_type_class_unref(typeClass);
  }
};
struct GErrorDeleter {
  void operator()(GError* error) const noexcept { g_error_free(error); }
};
struct GFreeDeleter {
  void operator()(gpointer memory) const noexcept { g_free(memory); }
};

template <typename Object>
using GObjectPtr = std::unique_ptr<Object, GObjectDeleter>;
using GVariantPtr = std::unique_ptr<GVariant, GVariantDeleter>;
using GTypeClassPtr = std::unique_ptr<GTypeClass, GTypeClassDeleter>;
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;
using GCharPtr = std::unique_ptr<gchar, GFreeDeleter>;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GLIB_HANDLES_H_
