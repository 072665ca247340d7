#include <gst/gst.h>

#include "nv_encoder.h"
#include "switches.h"
#include "va_encoder.h"

#define PACKAGE "linux_capture_addon"

namespace {

using linux_capture::standins::IsSwitchedOn;
using linux_capture::standins::NvEncoderType;
using linux_capture::standins::VaEncoderType;

// The switches choose which of the encoders there are.
gboolean InitPlugin(GstPlugin* plugin) {
  const auto add = [plugin](const char* name, GType type) {
    return gst_element_register(plugin, name, GST_RANK_NONE, type);
  };
  if (!IsSwitchedOn("without-nvh264enc")) add("nvh264enc", NvEncoderType());
  if (IsSwitchedOn("with-nvautogpuh264enc")) {
    add("nvautogpuh264enc", NvEncoderType());
  }
  if (IsSwitchedOn("with-vah264enc")) add("vah264enc", VaEncoderType());
  return TRUE;
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, nvcodec,
                  "Stands in for the NVENC plugin in tests", InitPlugin, "0.1",
                  "LGPL", "linux_capture_addon", "linux_capture_addon tests")
