#include "launch_boundary/pipeline_dump.h"

namespace linux_capture {

void DumpPipeline(GstElement* pipeline, const std::string& name) {
  if (!GST_IS_BIN(pipeline)) return;
  GST_DEBUG_BIN_TO_DOT_FILE(GST_BIN(pipeline), GST_DEBUG_GRAPH_SHOW_ALL,
                            name.c_str());
}

}  // namespace linux_capture
