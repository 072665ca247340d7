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
  EXPECT_EQ(SaneTimestamp(now + GST_SECOND, now, kNone), now + GST_SECOND);
}

TEST(SaneTimestampTest, TakesTheClockForATimeFarFromIt) {
  const GstClockTime now = 2 * kHour;
  EXPECT_EQ(SaneTimestamp(now + kHour, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now - kHour, now, kNone), now);
  EXPECT_EQ(SaneTimestamp(now + GST_SECOND + 1, now, kNone), now);
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

}  // namespace
}  // namespace linux_capture
