#include "launch_boundary/repaired_launch.h"

#include "launch_boundary/branch_size_check.h"
#include "launch_boundary/pipeline_dump.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/x11_source_check.h"

namespace linux_capture {

void LaunchRepaired(const std::string& text, PipelineKind kind,
                    const CaptureConfig& config, GstElementPtr& pipeline) {
  RepairContext context{config};
  if (kind == PipelineKind::kX11 || kind == PipelineKind::kScreenCast) {
    RequireEncodableBranches(config);
  }
  if (kind == PipelineKind::kX11) context.screen = RequireX11Source(config);
  pipeline = LaunchPipeline(text);
  ApplyRepairs(pipeline.get(), kind, context);
  DumpPipeline(pipeline.get(), kind == PipelineKind::kSound
                                   ? "linux-capture-audio-pipeline-launched"
                                   : "linux-capture-video-pipeline-launched");
}

}  // namespace linux_capture
