#include "video_hardware/keyframe_forcing.h"

#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "base/clock.h"
#include "launch_boundary/pipeline_launch.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "support/capture_fixture.h"
#include "video_software/openh264_branches.h"

namespace linux_capture {
namespace {

struct SeenEvent {
  GstClockTime runningTime = 0;
  gboolean allHeaders = FALSE;
  guint count = 99;
};

// What a probe on an encoder's pad does with the events it sees.
struct EventWatch {
  std::vector<SeenEvent> seen;
  std::function<void()> onEvent;
};

// Takes every upstream event of a pad and reports success for it.
GstPadProbeReturn AcceptEvent(GstPad* /*pad*/, GstPadProbeInfo* info,
                              gpointer data) {
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  SeenEvent seen;
  if (gst_video_event_is_force_key_unit(event) == FALSE ||
      gst_video_event_parse_upstream_force_key_unit(
          event, &seen.runningTime, &seen.allHeaders, &seen.count) == FALSE) {
    return GST_PAD_PROBE_OK;
  }
  auto& watch = *static_cast<EventWatch*>(data);
  watch.seen.push_back(seen);
  if (watch.onEvent) watch.onEvent();
  return GST_PAD_PROBE_DROP;
}

// Elements named like the encoders; one with a source in front of it can pass
// an event upstream, one without cannot.
class HardwareKeyframeTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    *g_activeVideoConfig = MakeThreeBranchConfig();
    g_encoderSelection->hardwareSimulcastFpsSatisfied = true;
    const std::lock_guard lock(g_hardwareStatsMutex);
    for (std::int32_t index = 0; index < 3; ++index) {
      VideoBranchStats stats;
      stats.branchIndex = index;
      g_hardwareBranchStats->push_back(stats);
      g_hardwareSyntheticTemporalSequenceByBranch[static_cast<std::size_t>(
                                                      index)]
          .store(3);
    }
  }

  static std::string Accepting(int index) {
    return "appsrc ! identity name=videoEncoder" + std::to_string(index) +
           " ! fakesink async=false ";
  }

  static std::string Rejecting(int index) {
    return "identity name=videoEncoder" + std::to_string(index) +
           " ! fakesink async=false ";
  }

  void Launch(const std::string& text) {
    *g_videoPipeline = LaunchPipeline(text);
    gst_element_set_state(g_videoPipeline->get(), GST_STATE_PLAYING);
    for (int index = 0; index < 3; ++index) {
      const GstElementPtr encoder = FindElement(
          g_videoPipeline->get(), "videoEncoder" + std::to_string(index));
      if (!encoder) continue;
      const GstPadPtr pad(gst_element_get_static_pad(encoder.get(), "sink"));
      if (gst_pad_is_linked(pad.get()) == FALSE) continue;
      gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM,
                        AcceptEvent, &watch_, nullptr);
    }
  }

  static VideoBranchStats Stats(std::int32_t branchIndex) {
    const std::lock_guard lock(g_hardwareStatsMutex);
    return *FindHardwareBranchStats(branchIndex);
  }

  static bool IsWaiting(std::size_t branch) {
    return g_videoBridgeNeedsKeyframeRecovery[branch].load();
  }

  static std::uint64_t Sequence(std::size_t branch) {
    return g_hardwareSyntheticTemporalSequenceByBranch[branch].load();
  }

  EventWatch watch_;
};

TEST_F(HardwareKeyframeTest, AKeyframeDeliveredDuringTheRequestIsNotAwaited) {
  Launch(Accepting(0) + Accepting(1));
  watch_.onEvent = [] {
    const std::lock_guard lock(g_hardwareStatsMutex);
    FindHardwareBranchStats(0)->keyframes = 1;
  };
  EXPECT_TRUE(ForceKeyframe());
  EXPECT_FALSE(IsWaiting(0));
  EXPECT_TRUE(IsWaiting(1));
  EXPECT_EQ(Stats(0).hardwareKeyframeRequestsAccepted, 1U);
}

TEST_F(HardwareKeyframeTest, EveryEncoderIsAskedForAKeyframeWithHeaders) {
  Launch(Accepting(0) + Accepting(1) + Accepting(2));
  EXPECT_TRUE(ForceKeyframe());
  ASSERT_EQ(watch_.seen.size(), 3U);
  for (const SeenEvent& event : watch_.seen) {
    EXPECT_EQ(event.runningTime, GST_CLOCK_TIME_NONE);
    EXPECT_TRUE(event.allHeaders);
    EXPECT_EQ(event.count, 0U);
  }
}

TEST_F(HardwareKeyframeTest, AnAcceptedRequestIsRecorded) {
  Launch(Accepting(0) + Accepting(1) + Accepting(2));
  const std::uint64_t beforeMs = WallClockMs();
  EXPECT_TRUE(ForceKeyframe());
  for (std::int32_t index = 0; index < 3; ++index) {
    const VideoBranchStats stats = Stats(index);
    EXPECT_EQ(stats.hardwareKeyframeRequestsAccepted, 1U);
    EXPECT_EQ(stats.hardwareKeyframeRequestsFailed, 0U);
    EXPECT_GE(stats.lastHardwareKeyframeRequestAtMs, beforeMs);
    EXPECT_LE(stats.lastHardwareKeyframeRequestAtMs, WallClockMs());
    EXPECT_TRUE(IsWaiting(static_cast<std::size_t>(index)));
    EXPECT_EQ(Sequence(static_cast<std::size_t>(index)), 0U);
  }
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
  EXPECT_EQ(g_lastOpenH264Error->Get(), "");
}

TEST_F(HardwareKeyframeTest, OneAcceptingEncoderIsEnough) {
  Launch(Accepting(0) + Rejecting(2));
  g_lastOpenH264Error->Set("an earlier one");
  EXPECT_TRUE(ForceKeyframe());
  EXPECT_EQ(Stats(0).hardwareKeyframeRequestsAccepted, 1U);
  EXPECT_EQ(Stats(1).hardwareKeyframeRequestsAccepted, 0U);
  EXPECT_EQ(Stats(1).hardwareKeyframeRequestsFailed, 0U);
  EXPECT_EQ(Stats(2).hardwareKeyframeRequestsFailed, 1U);
  EXPECT_EQ(Stats(2).lastHardwareKeyframeRequestAtMs, 0U);
  EXPECT_FALSE(IsWaiting(1));
  EXPECT_FALSE(IsWaiting(2));
  EXPECT_EQ(Sequence(2), 3U);
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
  EXPECT_EQ(g_lastOpenH264Error->Get(), "an earlier one");
}

TEST_F(HardwareKeyframeTest, WhenEveryEncoderRejectsTheLastOneIsNamed) {
  Launch(Rejecting(0) + Rejecting(1) + Rejecting(2));
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux hardware ForceKeyframe was rejected by videoEncoder2");
  for (std::int32_t index = 0; index < 3; ++index) {
    EXPECT_EQ(Stats(index).hardwareKeyframeRequestsFailed, 1U);
    EXPECT_FALSE(IsWaiting(static_cast<std::size_t>(index)));
  }
}

TEST_F(HardwareKeyframeTest, WhenEveryEncoderIsMissingTheLastOneIsNamed) {
  Launch("fakesrc ! fakesink");
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux hardware ForceKeyframe could not find videoEncoder2");
}

TEST_F(HardwareKeyframeTest, WithoutBranchesThereIsNoEncoder) {
  g_activeVideoConfig->branches.clear();
  Launch(Accepting(0));
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux hardware ForceKeyframe found no active video encoders");
}

TEST_F(HardwareKeyframeTest, ABranchWithoutARecordCountsForNothing) {
  Launch(Accepting(0) + Accepting(1) + Rejecting(2));
  {
    const std::lock_guard lock(g_hardwareStatsMutex);
    g_hardwareBranchStats->clear();
  }
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(watch_.seen.size(), 2U);
  EXPECT_FALSE(IsWaiting(0));
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux hardware ForceKeyframe found no active video encoders");
}

TEST_F(HardwareKeyframeTest, WithoutAPipelineTheSoftwarePathAnswers) {
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux ForceKeyframe requires active OpenH264 or hardware video "
            "encoders");
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
}

class SoftwareKeyframeTest : public CaptureFixture {
 protected:
  static void AddEncoder(std::int32_t index) {
    InitializeOpenH264Branch(MakeBranch(index, 64, 64, 30, 200'000, 300'000),
                             1);
  }

  static int EncodeType(std::int32_t index) {
    std::vector<unsigned char> picture(64 * 64 * 3 / 2, 100);
    SSourcePicture source{};
    source.iColorFormat = videoFormatI420;
    source.iPicWidth = source.iPicHeight = 64;
    source.iStride[0] = 64;
    source.iStride[1] = source.iStride[2] = 32;
    source.pData[0] = picture.data();
    source.pData[1] = picture.data() + 64 * 64;
    source.pData[2] = source.pData[1] + 32 * 32;
    SFrameBSInfo info{};
    EXPECT_EQ(FindOpenH264Branch(index)->encoder->EncodeFrame(&source, &info),
              0);
    return info.eFrameType;
  }
};

TEST_F(SoftwareKeyframeTest, WithoutEncodersNothingIsCounted) {
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "Linux ForceKeyframe requires active OpenH264 or hardware video "
            "encoders");
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
}

TEST_F(SoftwareKeyframeTest, EveryEncodersNextPictureIsAnIdr) {
  AddEncoder(0);
  AddEncoder(1);
  for (std::int32_t index = 0; index < 2; ++index) {
    EXPECT_EQ(EncodeType(index), videoFrameTypeIDR);
    EXPECT_NE(EncodeType(index), videoFrameTypeIDR);
  }
  EXPECT_TRUE(ForceKeyframe());
  EXPECT_EQ(EncodeType(0), videoFrameTypeIDR);
  EXPECT_EQ(EncodeType(1), videoFrameTypeIDR);
  EXPECT_NE(EncodeType(0), videoFrameTypeIDR);
}

TEST_F(SoftwareKeyframeTest, TheBridgeIsNotMadeToWait) {
  AddEncoder(0);
  EncodeType(0);
  EXPECT_TRUE(ForceKeyframe());
  EXPECT_FALSE(g_videoBridgeNeedsKeyframeRecovery[0].load());
}

TEST_F(SoftwareKeyframeTest, RecordsWithoutAnEncoderAreSkipped) {
  g_openH264Branches->push_back(nullptr);
  g_openH264Branches->push_back(std::make_unique<OpenH264BranchEncoder>());
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
  AddEncoder(2);
  EXPECT_TRUE(ForceKeyframe());
  g_openH264Branches->clear();
}

TEST_F(SoftwareKeyframeTest, AFailingEncoderFailsTheCallAfterAllWereAsked) {
  AddEncoder(0);
  AddEncoder(5);
  AddEncoder(2);
  EncodeType(2);
  // An encoder that is not initialised refuses.
  FindOpenH264Branch(5)->encoder->Uninitialize();
  EXPECT_FALSE(ForceKeyframe());
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(g_lastOpenH264Error->Get().rfind(
                "OpenH264 ForceIntraFrame failed for branch 5 result=", 0),
            0U);
  EXPECT_EQ(EncodeType(2), videoFrameTypeIDR);
}

}  // namespace
}  // namespace linux_capture
