#include <gst/gst.h>

#include "pipewire_source.h"

#define PACKAGE "linux_capture_addon"

namespace {

gboolean InitPlugin(GstPlugin* plugin) {
  return gst_element_register(plugin, "pipewiresrc", GST_RANK_NONE,
                              linux_capture::standins::PipeWireSourceType());
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, pipewire,
                  "Stands in for the PipeWire plugin in tests", InitPlugin,
                  "0.1", "LGPL", "linux_capture_addon",
                  "linux_capture_addon tests")
