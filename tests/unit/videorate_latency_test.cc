#include "launch_boundary/videorate_latency.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

constexpr int kSide = 2;
constexpr GstClockTime kGap = 90 * GST_MSECOND;

// When a picture went out, in milliseconds, and which one it was.
struct Delivered {
  std::uint64_t ms;
  int number;
  bool operator==(const Delivered&) const = default;
};

void PrintTo(const Delivered& delivered, std::ostream* out) {
  *out << delivered.number << "@" << delivered.ms;
}

// A videorate between numbered pictures and what it delivers.
class RateLine {
 public:
  RateLine(const std::string& sourceRate, int outputRate, bool isPrompt,
           GstClockTime longestGap = GST_CLOCK_TIME_NONE)
      : pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
            ("appsrc name=in format=time block=false caps=video/x-raw,"
             "format=GRAY8,width=2,height=2,framerate=" +
             sourceRate +
             " ! videoscale name=scaler ! videorate skip-to-first=true ! "
             "video/x-raw,framerate=" +
             std::to_string(outputRate) + "/1 ! appsink name=out sync=false")
                .c_str(),
            nullptr)))),
        in_(FindElement(pipeline_.get(), "in")),
        out_(FindElement(pipeline_.get(), "out")),
        source_(gst_element_get_static_pad(in_.get(), "src")) {
    gst_pad_add_probe(
        source_.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer count) {
          if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) !=
              GST_EVENT_CUSTOM_DOWNSTREAM) {
            return GST_PAD_PROBE_OK;
          }
          static_cast<std::atomic<int>*>(count)->fetch_add(1);
          return GST_PAD_PROBE_DROP;
        },
        &marksPassed_, nullptr);
    if (isPrompt) DeliverPicturesPromptly(pipeline_.get(), longestGap);
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  }
  RateLine(const RateLine&) = delete;
  RateLine& operator=(const RateLine&) = delete;
  ~RateLine() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }

  [[nodiscard]] GstElementPtr Find(const std::string& name) const {
    return FindElement(pipeline_.get(), name);
  }

  // As a source does while nothing changes.
  void Repeat(int number, double ms) { Send(number, ms, true); }

  void Send(int number, double ms, bool isRepetition = false) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 8 * kSide, nullptr);
    gst_buffer_memset(buffer, 0, static_cast<guint8>(number), 8 * kSide);
    GST_BUFFER_PTS(buffer) =
        GST_SECOND + static_cast<GstClockTime>(ms * GST_MSECOND);
    if (isRepetition) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DROPPABLE);
    gst_app_src_push_buffer(GST_APP_SRC(in_.get()), buffer);
  }

  // What comes out before `limit` passes without anything.
  std::vector<Delivered> Take(std::size_t most, GstClockTime limit) {
    std::vector<Delivered> taken;
    while (taken.size() < most) {
      const GstSamplePtr sample(
          gst_app_sink_try_pull_sample(GST_APP_SINK(out_.get()), limit));
      if (!sample) break;
      taken.push_back(ReadDelivered(sample.get()));
    }
    return taken;
  }

  // What comes out without a further picture.
  std::vector<Delivered> TakeAll() {
    // A mark behind the last picture begins its way when that one has gone
    // through every element.
    gst_element_send_event(
        in_.get(), gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM,
                                        gst_structure_new_empty("mark")));
    ++marks_;
    while (marksPassed_.load() < marks_) std::this_thread::yield();
    return Take(10'000, 0);
  }

  std::vector<Delivered> End() {
    gst_app_src_end_of_stream(GST_APP_SRC(in_.get()));
    return Take(10'000, 5 * GST_SECOND);
  }

 private:
  static Delivered ReadDelivered(GstSample* sample) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const ReadableBuffer bytes(buffer);
    return {
        (GST_BUFFER_PTS(buffer) - GST_SECOND + GST_MSECOND / 2) / GST_MSECOND,
        bytes.data()[0]};
  }

  GstElementPtr pipeline_;
  GstElementPtr in_;
  GstElementPtr out_;
  GstPadPtr source_;
  std::atomic<int> marksPassed_{0};
  int marks_ = 0;
};

std::vector<Delivered> RunLine(const std::string& sourceRate, int outputRate,
                               const std::vector<double>& times,
                               bool isPrompt) {
  RateLine line(sourceRate, outputRate, isPrompt);
  for (std::size_t i = 0; i < times.size(); ++i) {
    line.Send(static_cast<int>(i), times[i]);
  }
  return line.End();
}

std::vector<double> Regular(int count, double periodMs) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i) times.push_back(i * periodMs);
  return times;
}

// All but the last pictures, for which the end of the stream decides.
std::vector<Delivered> WithoutEnd(std::vector<Delivered> delivered) {
  if (delivered.size() > 2) delivered.resize(delivered.size() - 2);
  return delivered;
}

void ExpectSameChoice(const std::string& sourceRate, int outputRate,
                      const std::vector<double>& times) {
  const auto plain = WithoutEnd(RunLine(sourceRate, outputRate, times, false));
  auto prompt = RunLine(sourceRate, outputRate, times, true);
  ASSERT_GE(prompt.size(), plain.size());
  ASSERT_GT(plain.size(), 3U);
  prompt.resize(plain.size());
  EXPECT_EQ(prompt, plain);
}

TEST(PromptPicturesTest, TheSamePicturesAreChosenAtTheSourcesOwnRate) {
  ExpectSameChoice("30/1", 30, Regular(60, 1000.0 / 30));
}

TEST(PromptPicturesTest, TheSamePicturesAreChosenAtHalfTheRate) {
  ExpectSameChoice("30/1", 15, Regular(60, 1000.0 / 30));
}

TEST(PromptPicturesTest, TheSamePicturesAreChosenAtAnOddFraction) {
  ExpectSameChoice("30/1", 7, Regular(90, 1000.0 / 30));
  ExpectSameChoice("60/1", 25, Regular(90, 1000.0 / 60));
}

TEST(PromptPicturesTest, TheSameCopiesFillTheTimesOfMissingPictures) {
  auto times = Regular(60, 1000.0 / 30);
  times.erase(times.begin() + 30, times.begin() + 36);
  ExpectSameChoice("30/1", 30, times);
}

TEST(PromptPicturesTest, TheSamePicturesAreRepeatedForASlowSource) {
  ExpectSameChoice("12/1", 30, Regular(30, 1000.0 / 12));
}

TEST(PromptPicturesTest, UnsteadyTimesChangeNothingButTheirMoment) {
  auto times = Regular(60, 1000.0 / 30);
  for (std::size_t i = 1; i < times.size(); ++i) {
    times[i] += static_cast<double>(i * 7 % 9) - 4;
  }
  ExpectSameChoice("30/1", 30, times);
}

class PromptnessTest
    : public testing::TestWithParam<std::pair<std::string, int>> {};

TEST_P(PromptnessTest, APictureGoesOutWithoutWaitingForTheNext) {
  const auto& [sourceRate, outputRate] = GetParam();
  RateLine line(sourceRate, outputRate, true);
  const int step = 30 / outputRate;
  for (int i = 0; i < 24; ++i) {
    line.Send(i, i * 1000.0 / 30);
    if (i % step != 0) continue;
    const auto taken = line.Take(1, 5 * GST_SECOND);
    ASSERT_EQ(taken.size(), 1U) << "picture " << i;
    EXPECT_EQ(taken[0].number, i);
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, PromptnessTest,
                         testing::Values(std::pair("30/1", 30),
                                         std::pair("30/1", 15),
                                         std::pair("30/1", 10),
                                         std::pair("0/1", 30),
                                         std::pair("0/1", 15)));

struct FirstPicture {
  const char* sourceRate;
  double offsetMs;  // of its time from where the following ones have it
};

class FirstPictureTest : public testing::TestWithParam<FirstPicture> {};

// The grid of the output begins with it, so its phase is that of the capture.
TEST_P(FirstPictureTest, DelaysNoneOfTheFollowing) {
  const auto [sourceRate, offsetMs] = GetParam();
  RateLine line(sourceRate, 30, true, kGap);
  line.Send(0, 100 + offsetMs);
  ASSERT_EQ(line.Take(1, 5 * GST_SECOND).size(), 1U);
  // The one that settles which outputs the rest are for.
  line.Send(1, 100 + 1000.0 / 30);
  line.TakeAll();
  for (int i = 2; i < 20; ++i) {
    line.Send(i, 100 + i * 1000.0 / 30);
    const auto taken = line.Take(1, 5 * GST_SECOND);
    ASSERT_EQ(taken.size(), 1U) << "picture " << i;
    EXPECT_EQ(taken[0].number, i);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Phases, FirstPictureTest,
    testing::Values(FirstPicture{"30/1", -33}, FirstPicture{"30/1", -27},
                    FirstPicture{"30/1", -18}, FirstPicture{"30/1", -9},
                    FirstPicture{"30/1", 9}, FirstPicture{"30/1", 14},
                    FirstPicture{"30/1", 27}, FirstPicture{"0/1", -33},
                    FirstPicture{"0/1", -27}, FirstPicture{"0/1", -18},
                    FirstPicture{"0/1", -9}, FirstPicture{"0/1", 9},
                    FirstPicture{"0/1", 27}));

TEST(PromptPicturesTest, APictureThatASourceOfVariableRateSendsAfterAPause) {
  RateLine line("0/1", 30, true);
  line.Send(0, 0);
  ASSERT_EQ(line.Take(1, 5 * GST_SECOND).size(), 1U);
  line.Send(1, 310);
  const auto taken = line.TakeAll();
  ASSERT_FALSE(taken.empty());
  EXPECT_EQ(taken.back().number, 1) << "the new picture waits";
}

TEST(OpenGapTest, ThePictureThatEndsAGapGoesOutAtOnceAndAlone) {
  RateLine line("30/1", 30, true, kGap);
  line.Send(0, 0);
  ASSERT_EQ(line.Take(1, 5 * GST_SECOND).size(), 1U);
  line.Send(1, 10'000);
  EXPECT_EQ(line.TakeAll(), (std::vector<Delivered>{{10'000, 1}}));
}

TEST(OpenGapTest, EveryRepetitionOfAStillPictureGoesOutOnce) {
  RateLine line("30/1", 15, true, kGap);
  std::vector<Delivered> expected;
  for (int i = 0; i < 50; ++i) {
    line.Send(i, i * 100.0);
    expected.push_back({static_cast<std::uint64_t>(i) * 100, i});
  }
  EXPECT_EQ(line.TakeAll(), expected);
}

TEST(OpenGapTest, MotionAfterALongPauseKeepsItsRate) {
  RateLine line("30/1", 15, true, kGap);
  for (int i = 0; i < 100; ++i) line.Send(i, i * 100.0);
  ASSERT_EQ(line.TakeAll().size(), 100U);
  for (int i = 0; i < 60; ++i) line.Send(i, 10'000 + i * 1000.0 / 30);
  const auto moving = line.TakeAll();
  EXPECT_GE(moving.size(), 29U);
  EXPECT_LE(moving.size(), 31U);
  EXPECT_NEAR(static_cast<double>(moving.back().ms), 12'000, 80);
}

struct SlowBranch {
  const char* sourceRate;
  double sourcePeriodMs;
  int outputRate;
};

class SlowBranchTest : public testing::TestWithParam<SlowBranch> {
 protected:
  // Ten seconds of a source whose times waver by a few milliseconds.
  static std::vector<Delivered> TenSeconds() {
    const auto [sourceRate, periodMs, outputRate] = GetParam();
    RateLine line(sourceRate, outputRate, true, kGap);
    for (int i = 0; i * periodMs <= 10'000; ++i) {
      line.Send(i, i * periodMs + (i == 0 ? 0 : i * 7 % 13 - 6));
    }
    return line.TakeAll();
  }
};

TEST_P(SlowBranchTest, KeepsItsRateAndItsGrid) {
  const int rate = GetParam().outputRate;
  const auto delivered = TenSeconds();
  // The last one may be due only with the next picture.
  ASSERT_GE(delivered.size(), static_cast<std::size_t>(10 * rate));
  for (std::size_t i = 0; i < delivered.size(); ++i) {
    EXPECT_EQ(delivered[i].ms, static_cast<std::uint64_t>(
                                   static_cast<double>(i) * 1000 / rate + 0.5));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rates, SlowBranchTest,
    testing::Values(SlowBranch{"24/1", 1000.0 / 24, 10},
                    SlowBranch{"24/1", 1000.0 / 24, 11},
                    SlowBranch{"0/1", 1000.0 / 24, 10},
                    SlowBranch{"30/1", 1000.0 / 30, 7},
                    SlowBranch{"25/1", 1000.0 / 25, 3},
                    SlowBranch{"60/1", 1000.0 / 60, 1},
                    // As a source repeats a picture that stands still.
                    SlowBranch{"0/1", 100, 10}, SlowBranch{"30/1", 100, 5}));

TEST(OpenGapTest, AShortGapIsStillFilled) {
  RateLine line("30/1", 30, true, kGap);
  line.Send(0, 0);
  line.Send(1, 80);
  EXPECT_GE(line.TakeAll().size(), 3U);
}

class PauseTest
    : public testing::TestWithParam<std::tuple<const char*, int, double>> {};

TEST_P(PauseTest, APictureThatEndsItGoesOutAtOnceWithItsOwnTime) {
  const auto [sourceRate, outputRate, offsetMs] = GetParam();
  RateLine line(sourceRate, outputRate, true, kGap);
  for (int i = 0; i < 30; ++i) line.Send(i, i * 1000.0 / 30);
  double repeatedMs = 29 * 1000.0 / 30;
  for (int i = 0; i < 10; ++i) line.Repeat(29, repeatedMs += 100);
  const auto still = line.TakeAll();
  ASSERT_FALSE(still.empty());
  ASSERT_EQ(still.back().number, 29);

  const double newMs = repeatedMs + offsetMs;
  line.Send(30, newMs);
  const auto delivered = line.TakeAll();
  ASSERT_EQ(delivered.size(), 1U);
  EXPECT_EQ(delivered[0].number, 30);
  EXPECT_GT(delivered[0].ms, still.back().ms);
  EXPECT_NEAR(static_cast<double>(delivered[0].ms), newMs, 2);

  // And what follows keeps its distance from it, and leaves none out.
  for (int i = 1; i <= outputRate; ++i) {
    line.Send(30 + i, newMs + i * 1000.0 / outputRate);
    const auto next = line.TakeAll();
    ASSERT_EQ(next.size(), 1U) << "picture " << i;
    EXPECT_EQ(next[0].number, 30 + i);
  }
}

INSTANTIATE_TEST_SUITE_P(Phases, PauseTest,
                         testing::Combine(testing::Values("0/1", "30/1"),
                                          testing::Values(30, 20, 15, 11, 10),
                                          testing::Values(0.001, 3.0, 17.0,
                                                          34.0, 50.0, 99.0)));

class SlowSourceTest : public testing::TestWithParam<std::pair<int, double>> {};

// Each picture comes just behind the repetition of the one before.
TEST_P(SlowSourceTest, NoPictureWaitsAndTheRateIsKept) {
  const auto [outputRate, periodMs] = GetParam();
  RateLine line("0/1", outputRate, true, kGap);
  std::size_t packets = 0;
  int late = 0;
  constexpr int kPictures = 100;
  for (int i = 0; i < kPictures; ++i) {
    line.Send(i, i * periodMs);
    const auto delivered = line.TakeAll();
    packets += delivered.size();
    if (delivered.empty() || delivered.back().number != i) ++late;
    line.Repeat(i, i * periodMs + 100);
    packets += line.TakeAll().size();
  }
  EXPECT_LE(late, kPictures / 20);
  EXPECT_LE(static_cast<double>(packets),
            kPictures * periodMs * outputRate / 1000 + 2);
}

INSTANTIATE_TEST_SUITE_P(
    Periods, SlowSourceTest,
    testing::Values(std::pair(30, 105.0), std::pair(20, 105.0),
                    std::pair(15, 105.0), std::pair(12, 103.0),
                    std::pair(10, 105.0), std::pair(10, 130.0),
                    std::pair(15, 150.0)));

class StillBranchTest : public testing::TestWithParam<int> {};

TEST_P(StillBranchTest, NeverFallsSilentForLongerThanASecond) {
  const int outputRate = GetParam();
  RateLine line("0/1", outputRate, true, kGap);
  int number = 0;
  line.Send(number, 0);
  std::vector<Delivered> delivered;
  for (int i = 1; i < 200; ++i) {
    line.Repeat(number, i * 100.0);
    if (i % 23 == 0) line.Send(++number, i * 100.0 + i % 7);
    for (const Delivered& one : line.TakeAll()) delivered.push_back(one);
  }
  for (std::size_t i = 1; i < delivered.size(); ++i) {
    EXPECT_GT(delivered[i].ms, delivered[i - 1].ms);
    EXPECT_LE(delivered[i].ms - delivered[i - 1].ms, 1'050U);
  }
  EXPECT_GE(delivered.back().ms, 18'900U);
}

INSTANTIATE_TEST_SUITE_P(Rates, StillBranchTest,
                         testing::Values(30, 15, 10, 7, 5, 3, 1));

// It was left out before the pause began, and nobody has seen it.
TEST(RepetitionTest, ARepetitionDeliversAPictureThatWasLeftOut) {
  RateLine line("0/1", 10, true, kGap);
  line.Send(0, 0);
  line.Send(1, 10);
  line.TakeAll();
  line.Repeat(1, 110);
  const auto delivered = line.TakeAll();
  ASSERT_FALSE(delivered.empty());
  EXPECT_EQ(delivered.back().number, 1);
}

TEST(PromptPicturesTest, WhatDoesNotGoOutIsNotScaled) {
  RateLine line("30/1", 10, true);
  const GstElementPtr scaler = line.Find("scaler");
  const GstPadPtr pad(gst_element_get_static_pad(scaler.get(), "src"));
  std::atomic<int> scaled{0};
  gst_pad_add_probe(
      pad.get(), GST_PAD_PROBE_TYPE_BUFFER,
      [](GstPad*, GstPadProbeInfo*, gpointer count) {
        static_cast<std::atomic<int>*>(count)->fetch_add(1);
        return GST_PAD_PROBE_OK;
      },
      &scaled, nullptr);
  for (int i = 0; i < 61; ++i) line.Send(i, i * 1000.0 / 30);
  EXPECT_EQ(line.Take(21, 5 * GST_SECOND).size(), 21U);
  EXPECT_EQ(scaled.load(), 21);
}

TEST(PromptPicturesTest, TimesOfTheOutputKeepTheirGrid) {
  const auto delivered = RunLine("30/1", 15, Regular(60, 1000.0 / 30), true);
  for (std::size_t i = 0; i < delivered.size(); ++i) {
    EXPECT_EQ(delivered[i].ms, static_cast<std::uint64_t>(
                                   static_cast<double>(i) * 1000 / 15 + 0.5));
  }
}

}  // namespace
}  // namespace linux_capture
