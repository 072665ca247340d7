#include "audio/audio_pipeline.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "delivery/audio_packet.h"
#include "delivery/callbacks.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/repairs.h"
#include "state/audio_source_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "support/stage_lines.h"

namespace linux_capture {
namespace {

constexpr const char* kTone =
    "audiotestsrc is-live=true ! audio/x-raw,format=S16LE,rate=48000,"
    "channels=2,layout=interleaved ! appsink emit-signals=true sync=false "
    "name=";

class AudioPipelineTest : public CaptureFixture {
 protected:
  static void Attach(std::size_t sources) {
    CaptureConfig config;
    config.audioMode = "process";
    config.pipeWireTargetObjects.assign(sources, 7);
    const std::lock_guard lock(g_mutex);
    ApplyRepairs(g_audioPipeline->get(), PipelineKind::kSound, {config});
    AttachAudioPipelineCallbacksLocked(config);
  }

  static std::uint64_t PacketsOf(std::size_t source) {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    return g_audioSourceStats->at(source).packetsCaptured;
  }

  template <typename Condition>
  static bool Eventually(Condition condition) {
    for (int i = 0; i < 500; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
};

TEST_F(AudioPipelineTest, EverySinkDeliversToItsOwnMeter) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    g_audioSourceStats->resize(2);
  }
  const std::string tone = kTone;
  *g_audioPipeline =
      LaunchPipeline(tone + "audioSink " + tone + "audioProbeSink0 " + tone +
                     "audioProbeSink1");
  Attach(2);
  ASSERT_EQ(g_audioProbeSinkContexts->size(), 2U);
  EXPECT_EQ((*g_audioProbeSinkContexts)[0]->sourceIndex, 0U);
  EXPECT_EQ((*g_audioProbeSinkContexts)[1]->sourceIndex, 1U);
  gst_element_set_state(g_audioPipeline->get(), GST_STATE_PLAYING);
  EXPECT_TRUE(Eventually([] {
    return g_audioPacketsCaptured.Get() >= 3 && PacketsOf(0) >= 3 &&
           PacketsOf(1) >= 3;
  }));
  gst_element_set_state(g_audioPipeline->get(), GST_STATE_NULL);
  EXPECT_EQ(listener.Take().size(), g_audioPacketsCaptured.Get());
}

// With sinks that wait for one another's first buffer it would stay silent.
TEST_F(AudioPipelineTest, ASourceThatStaysSilentDoesNotHoldUpTheOthers) {
  const FakeListener<AudioPacket> listener(g_audioCallback);
  const std::string tone = kTone;
  *g_audioPipeline =
      LaunchPipeline(tone + "audioSink " + tone + "audioProbeSink0 " +
                     "appsrc ! appsink emit-signals=true sync=false "
                     "name=audioProbeSink1");
  Attach(2);
  GstElement* pipeline = g_audioPipeline->get();
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstState state = GST_STATE_NULL;
  gst_element_get_state(pipeline, &state, nullptr, 5 * GST_SECOND);
  EXPECT_EQ(state, GST_STATE_PLAYING);
  EXPECT_TRUE(Eventually([] { return g_audioPacketsCaptured.Get() >= 3; }));
  gst_element_set_state(pipeline, GST_STATE_NULL);
}

TEST_F(AudioPipelineTest, AMissingMixedSinkIsReported) {
  *g_audioPipeline = LaunchPipeline("fakesrc ! fakesink name=audioProbeSink0");
  EXPECT_EQ(MessageOf([] { Attach(1); }), "audio appsink was not created");
  EXPECT_TRUE(g_audioProbeSinkContexts->empty());
}

TEST_F(AudioPipelineTest, AMissingProbeSinkIsReportedByName) {
  const std::string tone = kTone;
  *g_audioPipeline =
      LaunchPipeline(tone + "audioSink " + tone + "audioProbeSink0 " + tone +
                     "audioProbeSink1");
  EXPECT_EQ(MessageOf([] { Attach(3); }),
            "audio probe appsink was not created: audioProbeSink2");
}

}  // namespace
}  // namespace linux_capture
