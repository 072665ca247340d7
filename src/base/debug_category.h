#ifndef LINUX_CAPTURE_BASE_DEBUG_CATEGORY_H_
#define LINUX_CAPTURE_BASE_DEBUG_CATEGORY_H_

#include <gst/gst.h>

namespace linux_capture {

// GStreamer's log of the module's own elements, probes and repairs:
// GST_DEBUG=linuxcapture:5 shows it.
inline GstDebugCategory* DebugCategory() {
  static GstDebugCategory* const kCategory = [] {
    GstDebugCategory* category = nullptr;
    GST_DEBUG_CATEGORY_INIT(category, "linuxcapture", 0,
                            "screen and sound capture");
    return category;
  }();
  return kCategory;
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_DEBUG_CATEGORY_H_
