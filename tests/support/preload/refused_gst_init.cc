#include <gst/gst.h>

// Preloaded, it makes GStreamer refuse to be initialised.
extern "C" __attribute__((visibility("default"))) gboolean gst_init_check(
    int* /*argc*/, char*** /*argv*/, GError** error) {
  g_set_error_literal(error, GST_CORE_ERROR, GST_CORE_ERROR_FAILED,
                      "the registry is broken");
  return FALSE;
}
