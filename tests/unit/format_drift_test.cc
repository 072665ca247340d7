#include "launch_boundary/format_drift.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace linux_capture {
namespace {

using std::chrono::milliseconds;

const PipeWireVideoFormat kOld{"BGRx", 320, 180};
const PipeWireVideoFormat kNew{"BGRx", 400, 200};

class FormatDriftTest : public testing::Test {
 protected:
  bool LookAt(int ms, const std::optional<PipeWireVideoFormat>& read,
              const std::optional<PipeWireVideoFormat>& given) {
    return drift_.Look(read, given, FormatDrift::Time(milliseconds(ms)));
  }

  FormatDrift drift_;
};

TEST_F(FormatDriftTest, SeesNoneWhereBothSidesAgree) {
  for (int ms = 0; ms < 5'000; ms += 100) {
    EXPECT_FALSE(LookAt(ms, kOld, kOld));
  }
}

TEST_F(FormatDriftTest, SeesAReaderThatDoesNotFollowWithinASecond) {
  LookAt(0, kOld, kOld);
  EXPECT_FALSE(LookAt(100, kOld, kNew));
  EXPECT_FALSE(LookAt(200, kOld, kNew));
  EXPECT_TRUE(LookAt(400, kOld, kNew));
}

TEST_F(FormatDriftTest, LeavesAReaderTimeToFollow) {
  LookAt(0, kOld, kNew);
  EXPECT_FALSE(LookAt(290, kOld, kNew));
  EXPECT_FALSE(LookAt(300, kNew, kNew));
  // Of a later change the time is a new one.
  EXPECT_FALSE(LookAt(1'000, kNew, kOld));
  EXPECT_FALSE(LookAt(1'200, kNew, kOld));
  EXPECT_TRUE(LookAt(1'300, kNew, kOld));
}

TEST_F(FormatDriftTest, WaitsForTheEndOfARowOfChangesButNotForLong) {
  PipeWireVideoFormat size = kNew;
  for (int ms = 0; ms < 600; ms += 100) {
    ++size.width;
    EXPECT_FALSE(LookAt(ms, kOld, size)) << ms;
  }
  ++size.width;
  EXPECT_TRUE(LookAt(600, kOld, size));
}

TEST_F(FormatDriftTest, CountsTheOrderOfTheColoursWhereItIsKnown) {
  const PipeWireVideoFormat swapped{"RGBx", 320, 180};
  LookAt(0, kOld, swapped);
  EXPECT_TRUE(LookAt(300, kOld, swapped));
  const PipeWireVideoFormat nameless{"", 320, 180};
  LookAt(1'000, kOld, nameless);
  EXPECT_FALSE(LookAt(2'000, kOld, nameless));
}

TEST_F(FormatDriftTest, TellsForHowLongTheSidesHaveBeenApart) {
  LookAt(0, kOld, kOld);
  EXPECT_EQ(drift_.apartFor(), milliseconds(0));
  LookAt(100, kOld, kNew);
  LookAt(250, kOld, kNew);
  EXPECT_EQ(drift_.apartFor(), milliseconds(150));
  LookAt(300, kNew, kNew);
  EXPECT_EQ(drift_.apartFor(), milliseconds(0));
}

TEST_F(FormatDriftTest, KnowsNothingOfASideThatIsNotKnown) {
  for (int ms = 0; ms < 2'000; ms += 100) {
    EXPECT_FALSE(LookAt(ms, std::nullopt, kNew));
    EXPECT_FALSE(LookAt(ms, kOld, std::nullopt));
  }
}

}  // namespace
}  // namespace linux_capture
