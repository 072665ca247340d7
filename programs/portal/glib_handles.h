#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_GLIB_HANDLES_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_GLIB_HANDLES_H_

#include <gio/gio.h>

#include <memory>

namespace linux_capture::portal {

// Owners of one reference each.
struct ObjectDeleter {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
struct VariantDeleter {
  void operator()(GVariant* variant) const noexcept {
    g_variant_unref(variant);
  }
};
struct ErrorDeleter {
  void operator()(GError* error) const noexcept { g_error_free(error); }
};
struct FreeDeleter {
  void operator()(gpointer memory) const noexcept { g_free(memory); }
};

using ConnectionPtr = std::unique_ptr<GDBusConnection, ObjectDeleter>;
using CancellablePtr = std::unique_ptr<GCancellable, ObjectDeleter>;
using FdListPtr = std::unique_ptr<GUnixFDList, ObjectDeleter>;
using VariantPtr = std::unique_ptr<GVariant, VariantDeleter>;
using ErrorPtr = std::unique_ptr<GError, ErrorDeleter>;
using CharPtr = std::unique_ptr<gchar, FreeDeleter>;

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_GLIB_HANDLES_H_
