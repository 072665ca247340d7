#include "video_software/raw_frame_encoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/clock.h"
#include "delivery/callbacks.h"
#include "delivery/lifecycle.h"
#include "delivery/nal_scan.h"
#include "delivery/video_packet.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
#include "support/app_pipeline.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "support/unreadable_buffer.h"
#include "video_software/openh264_branches.h"

namespace linux_capture {
namespace {

constexpr gsize kFrameSize = 64 * 64 * 3 / 2;

class RawFrameEncodingTest : public CaptureFixture {
 protected:
  void SetUp() override {
    CaptureFixture::SetUp();
    context_.branchIndex = 1;
    context_.width = 64;
    context_.height = 64;
    context_.fps = 30;
  }

  static void AddEncoder(std::int32_t index, std::int32_t layers = 1) {
    InitializeOpenH264Branch(MakeBranch(index, 64, 64, 30, 200'000, 300'000),
                             layers);
  }

  // A still picture in which a block moves. A picture that changed as a whole
  // would be taken for another scene and become a keyframe.
  GstBufferPtr Frame(GstClockTime pts = GST_SECOND) {
    ++frameNumber_;
    std::vector<std::uint8_t> bytes(kFrameSize);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(i * 3);
    }
    for (std::size_t row = 0; row < 8; ++row) {
      std::fill_n(bytes.begin() +
                      static_cast<std::ptrdiff_t>(row * 64 + frameNumber_ * 2),
                  8, std::uint8_t{200});
    }
    return MakeBuffer(bytes, pts);
  }

  GstFlowReturn Handle(GstClockTime pts = GST_SECOND) {
    pipeline_.Push(Frame(pts));
    return OnVideoSample(pipeline_.sink(), &context_);
  }

  static const VideoBranchStats& Stats(std::int32_t index) {
    return FindOpenH264Branch(index)->stats;
  }

  std::uint32_t frameNumber_ = 0;
  VideoSinkContext context_;
  AppPipeline pipeline_{
      "video/x-raw,format=I420,width=64,height=64,framerate=30/1"};
};

TEST_F(RawFrameEncodingTest, AFrameBecomesAPacket) {
  AddEncoder(1);
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  const std::uint64_t beforeMs = WallClockMs();
  ASSERT_EQ(Handle(2 * GST_SECOND), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  const VideoPacket& packet = *packets[0];
  EXPECT_TRUE(packet.isKeyFrame);
  EXPECT_TRUE(ContainsIdrNal(packet.payload.data(), packet.payload.size()));
  EXPECT_EQ(packet.rawPtsUs, 2'000'000U);
  EXPECT_EQ(packet.timestampUs, 2'000'000U);
  EXPECT_EQ(packet.durationUs, 33'333U);
  EXPECT_GE(packet.enqueuedAtMs, beforeMs);
  EXPECT_LE(packet.enqueuedAtMs, WallClockMs());
  EXPECT_EQ(packet.width, 64);
  EXPECT_EQ(packet.height, 64);
  EXPECT_EQ(packet.branchIndex, 1);
  EXPECT_EQ(packet.temporalIndex, 0);
}

TEST_F(RawFrameEncodingTest, OneKeyframeIsFollowedByDeltas) {
  AddEncoder(1);
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  for (GstClockTime i = 1; i <= 5; ++i) Handle(i * GST_SECOND);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 5U);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i]->isKeyFrame, i == 0);
    EXPECT_EQ(
        ContainsIdrNal(packets[i]->payload.data(), packets[i]->payload.size()),
        i == 0);
  }
}

TEST_F(RawFrameEncodingTest, ThreeLayersCarryTheirTemporalIndex) {
  AddEncoder(1, 3);
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  for (GstClockTime i = 1; i <= 8; ++i) Handle(i * GST_SECOND);
  std::vector<std::int32_t> layers;
  for (const auto& packet : listener.Take()) {
    layers.push_back(packet->temporalIndex);
  }
  EXPECT_EQ(layers, (std::vector<std::int32_t>{0, 2, 1, 2, 0, 2, 1, 2}));
  EXPECT_EQ(Stats(1).temporalFrameCounts,
            (std::array<std::uint64_t, 4>{2, 2, 4, 0}));
}

TEST_F(RawFrameEncodingTest, CountersFollowThePackets) {
  AddEncoder(1);
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  const std::uint64_t beforeMs = WallClockMs();
  for (GstClockTime i = 1; i <= 4; ++i) Handle(i * GST_SECOND);
  std::uint64_t bytes = 0;
  for (const auto& packet : listener.Take()) bytes += packet->payload.size();
  const VideoBranchStats& stats = Stats(1);
  EXPECT_EQ(stats.rawFrames, 4U);
  EXPECT_EQ(stats.encodedFrames, 4U);
  EXPECT_EQ(stats.keyframes, 1U);
  EXPECT_EQ(stats.bytesEncoded, bytes);
  EXPECT_EQ(stats.temporalFrameCounts,
            (std::array<std::uint64_t, 4>{4, 0, 0, 0}));
  EXPECT_GE(stats.firstFrameAtMs, beforeMs);
  EXPECT_GE(stats.lastFrameAtMs, stats.firstFrameAtMs);
  EXPECT_EQ(g_framesCaptured.Get(), 4U);
  EXPECT_EQ(g_framesEncoded.Get(), 4U);
  EXPECT_EQ(g_keyframesEncoded.Get(), 1U);
  EXPECT_EQ(g_deltaFramesEncoded.Get(), 3U);
  EXPECT_EQ(g_cpuMappedVideoFrames.Get(), 4U);
  EXPECT_EQ(g_firstVideoTimestampUs.Get(), 1'000'000U);
  EXPECT_EQ(g_lastVideoTimestampUs.Get(), 4'000'000U);
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
}

TEST_F(RawFrameEncodingTest, TheCaptureSizeFollowsBranchZeroOnly) {
  AddEncoder(1);
  AddEncoder(0);
  g_width.Set(7);
  g_height.Set(8);
  Handle();
  EXPECT_EQ(g_width.Get(), 7);
  EXPECT_EQ(g_height.Get(), 8);
  context_.branchIndex = 0;
  Handle();
  EXPECT_EQ(g_width.Get(), 64);
  EXPECT_EQ(g_height.Get(), 64);
}

TEST_F(RawFrameEncodingTest, TheCapsAreKept) {
  AddEncoder(1);
  Handle();
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(g_lastVideoCaps->rfind("video/x-raw", 0), 0U);
  EXPECT_NE(g_lastVideoCaps->find("I420"), std::string::npos);
}

TEST_F(RawFrameEncodingTest, ABranchWithoutAnEncoderRecordIsReported) {
  FakeListener<LifecycleEvent> events(g_lifecycleCallback);
  g_width.Set(7);
  g_height.Set(8);
  context_.branchIndex = 3;
  EXPECT_EQ(Handle(), GST_FLOW_ERROR);
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(g_lastOpenH264Error->Get(), "OpenH264 branch 3 not found");
  EXPECT_EQ(g_cpuMappedVideoFrames.Get(), 1U);
  EXPECT_EQ(g_framesCaptured.Get(), 0U);
  const auto delivered = events.Take();
  ASSERT_EQ(delivered.size(), 1U);
  EXPECT_EQ(delivered[0]->state, "error");
  EXPECT_EQ(delivered[0]->reason, "OpenH264 branch 3 not found");
  EXPECT_EQ(delivered[0]->width, 7);
  EXPECT_EQ(delivered[0]->height, 8);
}

TEST_F(RawFrameEncodingTest, ARecordWithoutAnEncoderIsReported) {
  FakeListener<LifecycleEvent> events(g_lifecycleCallback);
  VideoBranchConfig branch;
  branch.branchIndex = 1;
  g_openH264Branches->push_back(
      std::make_unique<OpenH264BranchEncoder>(branch));
  EXPECT_EQ(Handle(), GST_FLOW_ERROR);
  EXPECT_EQ(g_lastOpenH264Error->Get(),
            "OpenH264 branch encoder is not initialized");
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(events.Take().size(), 1U);
  EXPECT_EQ(Stats(1).rawFrames, 0U);
}

TEST_F(RawFrameEncodingTest, AnEncoderThatFailsIsReportedWithItsResult) {
  AddEncoder(1);
  FindOpenH264Branch(1)->encoder->Uninitialize();
  EXPECT_EQ(Handle(), GST_FLOW_ERROR);
  EXPECT_EQ(g_lastOpenH264Error->Get().rfind(
                "OpenH264 EncodeFrame failed for branch 1 result=", 0),
            0U);
  EXPECT_EQ(g_openH264Errors.Get(), 1U);
  EXPECT_EQ(Stats(1).rawFrames, 0U);
}

TEST_F(RawFrameEncodingTest, WhatCannotBeReadCountsNowhere) {
  AddEncoder(1);
  pipeline_.Push(MakeUnreadableBuffer(kFrameSize, GST_SECOND));
  EXPECT_EQ(OnVideoSample(pipeline_.sink(), &context_), GST_FLOW_ERROR);
  pipeline_.Push(MakeBuffer({1, 2, 3}, GST_SECOND));  // no whole picture
  EXPECT_EQ(OnVideoSample(pipeline_.sink(), &context_), GST_FLOW_ERROR);
  pipeline_.EndStream();
  EXPECT_EQ(OnVideoSample(pipeline_.sink(), &context_), GST_FLOW_ERROR);
  EXPECT_EQ(g_cpuMappedVideoFrames.Get(), 0U);
  EXPECT_EQ(g_openH264Errors.Get(), 0U);
  EXPECT_EQ(Stats(1).rawFrames, 0U);
}

TEST_F(RawFrameEncodingTest, CapsThatAreNoVideoCountNowhere) {
  AddEncoder(1);
  AppPipeline audio("audio/x-raw,format=S16LE,rate=8000,channels=1");
  audio.Push(MakeBuffer({1, 2}, GST_SECOND));
  EXPECT_EQ(OnVideoSample(audio.sink(), &context_), GST_FLOW_ERROR);
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(*g_lastVideoCaps, "");
}

TEST_F(RawFrameEncodingTest, WithoutAContextBranchZeroIsMeant) {
  AddEncoder(0);
  g_activeFps.Set(50);
  FakeListener<VideoPacket> listener(g_fragmentCallback);
  pipeline_.Push(Frame());
  ASSERT_EQ(OnVideoSample(pipeline_.sink(), nullptr), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->branchIndex, 0);
  EXPECT_EQ(packets[0]->durationUs, 20'000U);
}

}  // namespace
}  // namespace linux_capture
