#include "audio/audio_metering.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "state/counters.h"
#include "support/capture_fixture.h"

namespace linux_capture {
namespace {

using Samples = std::vector<std::int16_t>;

TEST(AudioMeteringTest, ABufferIsSummedUp) {
  const AudioMetering metering = MeterSamples(Samples{0, 3, -4, 0, 100, -100});
  EXPECT_EQ(metering.sampleCount, 6U);
  EXPECT_EQ(metering.nonZeroSamples, 4U);
  EXPECT_EQ(metering.absoluteSampleSum, 207U);
  EXPECT_EQ(metering.peakAbsoluteSample, 100U);
  EXPECT_EQ(metering.clippedSamples, 0U);
  EXPECT_FALSE(metering.IsSilent());
}

TEST(AudioMeteringTest, TheLowestSampleIsNonZeroAndClipped) {
  const AudioMetering metering = MeterSamples(Samples(1920, -32768));
  EXPECT_EQ(metering.nonZeroSamples, 1920U);
  EXPECT_EQ(metering.clippedSamples, 1920U);
  EXPECT_EQ(metering.peakAbsoluteSample, 32768U);
  EXPECT_EQ(metering.absoluteSampleSum, std::uint64_t{1920} * 32768);
}

TEST(AudioMeteringTest, ClippingStartsAtItsThreshold) {
  EXPECT_EQ(MeterSamples(Samples{32759, -32759}).clippedSamples, 0U);
  EXPECT_EQ(MeterSamples(Samples{32760, -32760}).clippedSamples, 2U);
  EXPECT_EQ(MeterSamples(Samples{32767, -32767}).clippedSamples, 2U);
}

TEST(AudioMeteringTest, ZerosAndNothingAreSilent) {
  EXPECT_TRUE(MeterSamples({}).IsSilent());
  EXPECT_EQ(MeterSamples({}).sampleCount, 0U);
  EXPECT_TRUE(MeterSamples(Samples(960, 0)).IsSilent());
  EXPECT_FALSE(MeterSamples(Samples{0, 0, -1}).IsSilent());
}

TEST(AudioMeteringTest, LongLoudBuffersDoNotOverflow) {
  constexpr std::size_t kCount = 1'000'003;
  const AudioMetering metering = MeterSamples(Samples(kCount, -32768));
  EXPECT_EQ(metering.sampleCount, kCount);
  EXPECT_EQ(metering.absoluteSampleSum, std::uint64_t{kCount} * 32768);
  EXPECT_EQ(metering.clippedSamples, kCount);
}

TEST(AudioMeteringTest, AnyBufferIsMeteredAsSampleBySample) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> anySample(-32768, 32767);
  std::uniform_int_distribution<std::size_t> anySize(0, 20'000);
  for (int round = 0; round < 60; ++round) {
    Samples samples(anySize(random));
    AudioMetering expected;
    expected.sampleCount = samples.size();
    for (auto& sample : samples) {
      sample =
          static_cast<std::int16_t>(round % 4 == 0 ? 0 : anySample(random));
      const auto absolute =
          static_cast<std::uint32_t>(std::abs(static_cast<int>(sample)));
      if (absolute == 0) continue;
      ++expected.nonZeroSamples;
      expected.absoluteSampleSum += absolute;
      expected.peakAbsoluteSample =
          std::max(expected.peakAbsoluteSample, absolute);
      if (absolute >= 32760) ++expected.clippedSamples;
    }
    ASSERT_EQ(MeterSamples(samples), expected) << "round " << round;

    // The same bytes at an odd address, with an odd byte behind them.
    std::vector<std::uint8_t> bytes(samples.size() * 2 + 2);
    if (!samples.empty()) {
      std::memcpy(bytes.data() + 1, samples.data(), samples.size() * 2);
    }
    ASSERT_EQ(MeterSampleBytes({bytes.data() + 1, samples.size() * 2 + 1}),
              expected)
        << "round " << round;
  }
}

AudioPacket Packet(const Samples& samples, std::uint64_t timestampUs,
                   std::uint64_t nowMs) {
  AudioPacket packet;
  packet.samples = samples;
  packet.timestampUs = timestampUs;
  packet.enqueuedAtMs = nowMs;
  packet.metering = MeterSamples(samples);
  return packet;
}

class AudioCountersTest : public CaptureFixture {};

TEST_F(AudioCountersTest, PacketsAddUp) {
  CountAudioPacket(Packet({0, 100, -32768, 7}, 5'000, 10));
  CountAudioPacket(Packet({0, 0, -3, 0}, 25'000, 30));
  EXPECT_EQ(g_audioSamplesCaptured.Get(), 8U);
  EXPECT_EQ(g_audioPacketsCaptured.Get(), 2U);
  EXPECT_EQ(g_audioNonZeroSamplesCaptured.Get(), 4U);
  EXPECT_EQ(g_audioAbsoluteSampleSum.Get(), 32'878U);
  EXPECT_EQ(g_audioClippedSamplesCaptured.Get(), 1U);
  EXPECT_EQ(g_audioPeakAbsoluteSample.Get(), 32'768U);
  EXPECT_EQ(g_audioLastClippedSamples.Get(), 0U);
  EXPECT_EQ(g_audioLastAbsoluteSampleSum.Get(), 3U);
  EXPECT_EQ(g_audioLastNonZeroSamples.Get(), 1U);
  EXPECT_EQ(g_audioLastPeakAbsoluteSample.Get(), 3U);
  EXPECT_EQ(g_audioLastPacketAtMs.Get(), 30U);
  EXPECT_EQ(g_audioLastNonZeroAtMs.Get(), 30U);
  EXPECT_EQ(g_firstAudioTimestampUs.Get(), 5'000U);
  EXPECT_EQ(g_lastAudioTimestampUs.Get(), 25'000U);
}

TEST_F(AudioCountersTest, APacketWithoutATimeLeavesTheTimestamps) {
  CountAudioPacket(Packet({1}, 0, 10));
  EXPECT_EQ(g_firstAudioTimestampUs.Get(), 0U);
  CountAudioPacket(Packet({1}, 8'000, 20));
  CountAudioPacket(Packet({1}, 0, 30));
  EXPECT_EQ(g_firstAudioTimestampUs.Get(), 8'000U);
  EXPECT_EQ(g_lastAudioTimestampUs.Get(), 8'000U);
}

TEST_F(AudioCountersTest, RunsOfSilenceAreCounted) {
  CountAudioPacket(Packet({9, 9}, 1, 10));
  for (std::uint64_t i = 1; i <= 3; ++i) {
    CountAudioPacket(Packet({0, 0}, 1, 10 + i));
    EXPECT_EQ(g_audioConsecutiveSilentPackets.Get(), i);
  }
  EXPECT_EQ(g_audioSilentPackets.Get(), 3U);
  EXPECT_EQ(g_audioMaxConsecutiveSilentPackets.Get(), 3U);
  EXPECT_EQ(g_audioLastNonZeroAtMs.Get(), 10U);
  CountAudioPacket(Packet({9, 9}, 1, 20));
  CountAudioPacket(Packet({0, 0}, 1, 21));
  EXPECT_EQ(g_audioConsecutiveSilentPackets.Get(), 1U);
  EXPECT_EQ(g_audioMaxConsecutiveSilentPackets.Get(), 3U);
  EXPECT_EQ(g_audioSilentPackets.Get(), 4U);
  EXPECT_EQ(g_audioLastNonZeroAtMs.Get(), 20U);
  EXPECT_EQ(g_audioLastPacketAtMs.Get(), 21U);
}

void CountSource(const Samples& samples, std::uint64_t nowMs,
                 const std::string& caps, AudioSourceStats& stats) {
  CountAudioSourceBuffer(MeterSamples(samples), nowMs, caps, stats);
}

TEST(AudioSourceCountingTest, BuffersAddUp) {
  AudioSourceStats stats;
  CountSource({0, 100, -32768, 7}, 10, "audio/x-raw", stats);
  CountSource({0, 0, -3, 0}, 30, "", stats);
  EXPECT_EQ(stats.samplesCaptured, 8U);
  EXPECT_EQ(stats.packetsCaptured, 2U);
  EXPECT_EQ(stats.nonZeroSamplesCaptured, 4U);
  EXPECT_EQ(stats.absoluteSampleSum, 32'878U);
  EXPECT_EQ(stats.peakAbsoluteSample, 32'768U);
  EXPECT_EQ(stats.clippedSamplesCaptured, 1U);
  EXPECT_EQ(stats.lastNonZeroSamples, 1U);
  EXPECT_EQ(stats.lastAbsoluteSampleSum, 3U);
  EXPECT_EQ(stats.lastPeakAbsoluteSample, 3U);
  EXPECT_EQ(stats.lastClippedSamples, 0U);
  EXPECT_EQ(stats.lastPacketAtMs, 30U);
  EXPECT_EQ(stats.lastNonZeroAtMs, 30U);
  EXPECT_EQ(stats.caps, "audio/x-raw");
}

TEST(AudioSourceCountingTest, RunsOfSilenceAreCounted) {
  AudioSourceStats stats;
  CountSource({9}, 10, "", stats);
  for (int i = 0; i < 3; ++i) CountSource({0, 0}, 20, "", stats);
  EXPECT_EQ(stats.silentPackets, 3U);
  EXPECT_EQ(stats.consecutiveSilentPackets, 3U);
  EXPECT_EQ(stats.maxConsecutiveSilentPackets, 3U);
  EXPECT_EQ(stats.lastNonZeroAtMs, 10U);
  CountSource({9}, 30, "", stats);
  EXPECT_EQ(stats.consecutiveSilentPackets, 0U);
  EXPECT_EQ(stats.maxConsecutiveSilentPackets, 3U);
  EXPECT_EQ(stats.lastNonZeroAtMs, 30U);
}

}  // namespace
}  // namespace linux_capture
