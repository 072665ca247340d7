#include "launch_boundary/source_timestamps.h"

#include <gtest/gtest.h>

namespace linux_capture {
namespace {

constexpr GstClockTime kNone = GST_CLOCK_TIME_NONE;
constexpr GstClockTime kHour = 3600 * GST_SECOND;

TEST(SaneTimestampTest, KeepsATimeNearTheClock) {
  const GstClockTime now = 10 * GST_SECOND;
  EXPECT_EQ(SaneTimestamp(now, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now - GST_SECOND, now, kNone), now - GST_SECOND);
  EXPECT_EQ(SaneTimestamp(now + 100 * GST_MSECOND, now, kNone),
            now + 100 * GST_MSECOND);
}

TEST(SaneTimestampTest, TakesTheClockForATimeFarFromIt) {
  const GstClockTime now = 2 * kHour;
  EXPECT_EQ(SaneTimestamp(now + kHour, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now - kHour, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now + 101 * GST_MSECOND, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now - GST_SECOND - 1, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(0, now, kNone), now);
}

TEST(SaneTimestampTest, TakesTheClockForAMissingTime) {
  EXPECT_EQ(SaneTimestamp(kNone, 5 * GST_SECOND, kNone), 5 * GST_SECOND);
  EXPECT_EQ(SaneTimestamp(kNone, 5 * GST_SECOND, GST_SECOND), 5 * GST_SECOND);
}

TEST(SaneTimestampTest, NeverGivesZeroWhichReadsAsNoTime) {
  EXPECT_EQ(SaneTimestamp(0, 0, kNone), 1 * GST_USECOND);
  EXPECT_EQ(SaneTimestamp(0, 20 * GST_MSECOND, kNone), 1 * GST_USECOND);
}

TEST(SaneTimestampTest, AlwaysMovesOn) {
  const GstClockTime now = 10 * GST_SECOND;
  const GstClockTime next = now + 1 * GST_USECOND;
  EXPECT_EQ(SaneTimestamp(now, now, now), next);
  EXPECT_EQ(SaneTimestamp(now - GST_MSECOND, now, now), next);
  EXPECT_EQ(SaneTimestamp(now - kHour, now, now), next);
  EXPECT_EQ(SaneTimestamp(now + 1, now, now - GST_SECOND), now + 1);
}

// Of pictures thirty times a second whose own times step in the middle, how
// many have hardly another time than the one before: a branch has no use for
// them.
int CrowdedPictures(int stepMs) {
  constexpr int kPictures = 90;
  GstClockTime previous = kNone;
  int crowded = 0;
  for (int i = 0; i < kPictures; ++i) {
    const GstClockTime now =
        10 * GST_SECOND + static_cast<GstClockTime>(i) * GST_SECOND / 30;
    const int shiftMs = i < kPictures / 2 ? 0 : stepMs;
    const GstClockTime stamp =
        shiftMs < 0 ? now - static_cast<guint>(-shiftMs) * GST_MSECOND
                    : now + static_cast<guint>(shiftMs) * GST_MSECOND;
    const GstClockTime value = SaneTimestamp(stamp, now, previous);
    if (previous != kNone && value < previous + 10 * GST_MSECOND) ++crowded;
    previous = value;
  }
  return crowded;
}

TEST(SaneTimestampTest, AStepOfLessThanASecondHoldsNothingUp) {
  for (const int ms : {-1'000, -900, -500, -50, 50, 500, 900, 1'000}) {
    EXPECT_LE(CrowdedPictures(ms), 2) << ms;
  }
}

// As after a step ahead that was believed.
TEST(SaneTimestampTest, AStepBackHoldsUpNoLongerThanTheFurthestAhead) {
  const GstClockTime now = 10 * GST_SECOND;
  const GstClockTime ahead = SaneTimestamp(now + GST_SECOND, now, kNone);
  EXPECT_LE(ahead, now + 100 * GST_MSECOND);
}

}  // namespace
}  // namespace linux_capture
