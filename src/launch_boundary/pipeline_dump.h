#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_DUMP_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_DUMP_H_

#include <gst/gst.h>

#include <string>

namespace linux_capture {

// Draws the pipeline as it is at this moment into a file "NAME.dot" of the
// folder that GStreamer's GST_DEBUG_DUMP_DOT_DIR names; does nothing where it
// names none.
void DumpPipeline(GstElement* pipeline, const std::string& name);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_DUMP_H_
