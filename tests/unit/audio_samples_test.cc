#include "audio/audio_samples.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "delivery/audio_packet.h"
#include "delivery/callbacks.h"
#include "launch_boundary/pipeline_launch.h"
#include "state/audio_source_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "support/app_pipeline.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "support/unreadable_buffer.h"

namespace linux_capture {
namespace {

using Samples = std::vector<std::int16_t>;

std::vector<std::uint8_t> BytesOf(const Samples& samples) {
  std::vector<std::uint8_t> bytes(samples.size() * 2);
  if (!bytes.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
  return bytes;
}

class AudioSamplesTest : public CaptureFixture {
 protected:
  GstFlowReturn Handle(const std::vector<std::uint8_t>& bytes,
                       GstClockTime pts = GST_SECOND,
                       GstClockTime duration = GST_CLOCK_TIME_NONE) {
    pipeline_.Push(MakeBuffer(bytes, pts, duration));
    return OnAudioSample(pipeline_.sink(), nullptr);
  }

  GstFlowReturn HandleProbe(const Samples& samples,
                            AudioProbeSinkContext* context) {
    pipeline_.Push(MakeBuffer(BytesOf(samples), GST_SECOND));
    return OnAudioProbeSample(pipeline_.sink(), context);
  }

  static void AddSources(std::size_t count) {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    g_audioSourceStats->resize(count);
  }

  static AudioSourceStats Source(std::size_t index) {
    const std::lock_guard lock(g_audioSourceStatsMutex);
    return g_audioSourceStats->at(index);
  }

  AppPipeline pipeline_{
      "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved"};
};

TEST(AudioDurationTest, InterleavedSamplesShareTheirTime) {
  EXPECT_EQ(AudioDurationUs(1920, 2, 48000), 20'000U);
  EXPECT_EQ(AudioDurationUs(0, 2, 48000), 0U);
  EXPECT_EQ(AudioDurationUs(2, 2, 48000), 21U);  // 20.83
  EXPECT_EQ(AudioDurationUs(1, 2, 48000), 10U);  // 10.42
  EXPECT_EQ(AudioDurationUs(96000, 2, 48000), 1'000'000U);
}

TEST_F(AudioSamplesTest, ABufferBecomesAPacket) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  Samples samples(1920, 0);
  samples[1] = 500;
  samples[2] = -32768;
  const std::uint64_t beforeMs = WallClockMs();
  ASSERT_EQ(Handle(BytesOf(samples), 3 * GST_SECOND), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  const AudioPacket& packet = *packets[0];
  EXPECT_EQ(packet.samples, samples);
  EXPECT_EQ(packet.rawPtsUs, 3'000'000U);
  EXPECT_EQ(packet.rawDtsUs, 0U);
  EXPECT_EQ(packet.timestampUs, 3'000'000U);
  EXPECT_EQ(packet.durationUs, 20'000U);
  EXPECT_GE(packet.enqueuedAtMs, beforeMs);
  EXPECT_LE(packet.enqueuedAtMs, WallClockMs());
  EXPECT_EQ(packet.channels, 2);
  EXPECT_EQ(packet.sampleRate, 48000);
  EXPECT_EQ(packet.metering.nonZeroSamples, 2U);
  EXPECT_EQ(packet.metering.absoluteSampleSum, 33'268U);
  EXPECT_EQ(packet.metering.peakAbsoluteSample, 32'768U);
  EXPECT_EQ(packet.metering.clippedSamples, 1U);
  EXPECT_EQ(g_audioBridgeQueuedPackets.Get(), 1U);
  EXPECT_EQ(g_audioSamplesCaptured.Get(), 1920U);
}

TEST_F(AudioSamplesTest, ABuffersOwnDurationIsUsed) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  Handle(BytesOf(Samples(1920, 1)), GST_SECOND, 7 * GST_MSECOND);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->durationUs, 7'000U);
}

TEST_F(AudioSamplesTest, ThePipelineGivesTheSessionClock) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  const GstElementPtr started = LaunchPipeline("fakesrc ! fakesink");
  gst_element_set_base_time(started.get(), 10 * GST_SECOND);
  g_sessionClockOriginUs.Set(4'000'000);
  pipeline_.Push(MakeBuffer(BytesOf({1, 2}), GST_SECOND));
  AudioSinkContext context;
  context.pipeline = started.get();
  ASSERT_EQ(OnAudioSample(pipeline_.sink(), &context), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->timestampUs, 7'000'000U);
  EXPECT_EQ(g_firstAudioTimestampUs.Get(), 7'000'000U);
}

TEST_F(AudioSamplesTest, ATrailingOddByteIsDropped) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  ASSERT_EQ(Handle({0x34, 0x12, 0xff}), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->samples, Samples{0x1234});
}

TEST_F(AudioSamplesTest, AnEmptyBufferIsASilentPacketWithoutDuration) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  ASSERT_EQ(Handle({}), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0]->samples.empty());
  EXPECT_EQ(packets[0]->durationUs, 0U);
  EXPECT_EQ(g_audioSilentPackets.Get(), 1U);
}

TEST_F(AudioSamplesTest, WithoutACallbackOnlyTheCountersMove) {
  ASSERT_EQ(Handle(BytesOf({1, 2})), GST_FLOW_OK);
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 1U);
  EXPECT_EQ(g_audioBridgeQueuedPackets.Get(), 0U);
  EXPECT_EQ(g_audioBridgeDroppedPackets.Get(), 0U);
}

TEST_F(AudioSamplesTest, ARefusedPacketIsDroppedAndTheNextOneDelivered) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  FakeNodeApi::AnswerCallsWith(napi_queue_full);
  ASSERT_EQ(Handle(BytesOf({1, 2})), GST_FLOW_OK);
  FakeNodeApi::AnswerCallsWith(napi_ok);
  ASSERT_EQ(Handle(BytesOf({3, 4})), GST_FLOW_OK);
  const auto packets = listener.Take();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0]->samples, (Samples{3, 4}));
  EXPECT_EQ(g_audioBridgeDroppedPackets.Get(), 1U);
  EXPECT_EQ(g_audioBridgeQueuedPackets.Get(), 1U);
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 2U);
}

TEST_F(AudioSamplesTest, TheQueueHolds256Packets) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  for (int i = 0; i < 258; ++i) Handle(BytesOf({1, 2}));
  EXPECT_EQ(g_audioBridgeQueuedPackets.Get(), 256U);
  EXPECT_EQ(g_audioBridgeDroppedPackets.Get(), 2U);
  EXPECT_EQ(listener.Take().size(), 256U);
}

TEST_F(AudioSamplesTest, TheCapsAreKept) {
  Handle(BytesOf({1, 2}));
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(g_lastAudioCaps->rfind("audio/x-raw", 0), 0U);
  EXPECT_NE(g_lastAudioCaps->find("48000"), std::string::npos);
  EXPECT_EQ(*g_lastVideoCaps, "");
}

TEST_F(AudioSamplesTest, WhatCannotBeReadIsAnErrorThatCountsNothing) {
  pipeline_.Push(MakeUnreadableBuffer(64, GST_SECOND));
  EXPECT_EQ(OnAudioSample(pipeline_.sink(), nullptr), GST_FLOW_ERROR);
  pipeline_.EndStream();
  EXPECT_EQ(OnAudioSample(pipeline_.sink(), nullptr), GST_FLOW_ERROR);
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 0U);
}

TEST_F(AudioSamplesTest, AProbeMetersItsOwnSource) {
  AddSources(2);
  AudioProbeSinkContext context{1};
  const std::uint64_t beforeMs = WallClockMs();
  ASSERT_EQ(HandleProbe({0, -32768, 5, 0}, &context), GST_FLOW_OK);
  const AudioSourceStats stats = Source(1);
  EXPECT_EQ(stats.samplesCaptured, 4U);
  EXPECT_EQ(stats.packetsCaptured, 1U);
  EXPECT_EQ(stats.nonZeroSamplesCaptured, 2U);
  EXPECT_EQ(stats.absoluteSampleSum, 32'773U);
  EXPECT_EQ(stats.peakAbsoluteSample, 32'768U);
  EXPECT_EQ(stats.clippedSamplesCaptured, 1U);
  EXPECT_GE(stats.lastPacketAtMs, beforeMs);
  EXPECT_EQ(stats.lastNonZeroAtMs, stats.lastPacketAtMs);
  EXPECT_EQ(stats.caps.rfind("audio/x-raw", 0), 0U);
  EXPECT_EQ(Source(0).packetsCaptured, 0U);
}

TEST_F(AudioSamplesTest, AProbeTouchesNeitherTheMixNorTheCallback) {
  FakeListener<AudioPacket> listener(g_audioCallback);
  AddSources(1);
  AudioProbeSinkContext context{0};
  ASSERT_EQ(HandleProbe({1, 2}, &context), GST_FLOW_OK);
  EXPECT_TRUE(listener.Take().empty());
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 0U);
  const std::lock_guard lock(g_capsMutex);
  EXPECT_EQ(*g_lastAudioCaps, "");
}

TEST_F(AudioSamplesTest, AProbeWithoutAnEntryUpdatesNothing) {
  AddSources(1);
  AudioProbeSinkContext context{1};
  EXPECT_EQ(HandleProbe({1, 2}, &context), GST_FLOW_OK);
  EXPECT_EQ(Source(0).packetsCaptured, 0U);
}

TEST_F(AudioSamplesTest, AProbeThatCannotReadIsAnError) {
  AddSources(1);
  AudioProbeSinkContext context{0};
  EXPECT_EQ(HandleProbe({1, 2}, nullptr), GST_FLOW_ERROR);
  EXPECT_EQ(OnAudioProbeSample(pipeline_.sink(), &context), GST_FLOW_OK);
  pipeline_.Push(MakeUnreadableBuffer(64, GST_SECOND));
  EXPECT_EQ(OnAudioProbeSample(pipeline_.sink(), &context), GST_FLOW_ERROR);
  pipeline_.EndStream();
  EXPECT_EQ(OnAudioProbeSample(pipeline_.sink(), &context), GST_FLOW_ERROR);
  EXPECT_EQ(Source(0).packetsCaptured, 1U);
}

}  // namespace
}  // namespace linux_capture
