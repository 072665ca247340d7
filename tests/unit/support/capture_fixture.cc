#include "support/capture_fixture.h"

#include <mutex>

#include "launch_boundary/pipeline_control.h"
#include "state/audio_source_stats.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/openh264_encoders.h"
#include "stats/stats_reset.h"
#include "support/fake_node_api.h"

namespace linux_capture {
namespace {

void ClearProcessState() {
  for (GstElementPtr* pipeline : {&*g_audioPipeline, &*g_videoPipeline}) {
    if (!*pipeline) continue;
    gst_element_set_state(pipeline->get(), GST_STATE_NULL);
    pipeline->reset();
  }
  g_isCapturing.store(false);
  g_videoControl->reset();
  g_audioControl->reset();
  g_videoSinkContexts->clear();
  g_audioSinkContext->reset();
  g_audioProbeSinkContexts->clear();
  DestroyOpenH264Branches();
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    g_hardwareBranchStats->clear();
  }
  SetActiveVideoConfig(CaptureConfig{});
  ResetForNewSession(CaptureConfig{});
  FakeNodeApi::Reset();
}

}  // namespace

void CaptureFixture::SetUp() { ClearProcessState(); }

void CaptureFixture::TearDown() { ClearProcessState(); }

VideoBranchConfig MakeBranch(std::int32_t branchIndex, std::int32_t width,
                             std::int32_t height, std::int32_t fps,
                             std::int32_t bitrate, std::int32_t maxBitrate) {
  VideoBranchConfig branch;
  branch.branchIndex = branchIndex;
  branch.width = width;
  branch.height = height;
  branch.fps = fps;
  branch.bitrate = bitrate;
  branch.maxBitrate = maxBitrate;
  return branch;
}

CaptureConfig MakeThreeBranchConfig() {
  CaptureConfig config;
  config.backend = "portal";
  config.kind = "monitor";
  config.pipeWireFd = 42;
  config.pipeWireNodeId = 77;
  config.encoderRequirement = "hardware";
  config.gopSize = 60;
  config.bFrames = 0;
  config.width = 1280;
  config.height = 720;
  config.fps = 30;
  config.branches = {MakeBranch(0, 1280, 720, 30, 2'500'000, 3'000'000),
                     MakeBranch(1, 640, 360, 15, 1'500'000, 2'000'000),
                     MakeBranch(2, 320, 180, 7, 500'000, 600'000)};
  return config;
}

}  // namespace linux_capture
