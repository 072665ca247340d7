#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_CAPTURE_FIXTURE_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_CAPTURE_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture {

// Leaves the process-wide state as it is when a module was just loaded, before
// and after each test.
class CaptureFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

VideoBranchConfig MakeBranch(std::int32_t branchIndex, std::int32_t width,
                             std::int32_t height, std::int32_t fps,
                             std::int32_t bitrate, std::int32_t maxBitrate);

// 1280x720@30, 640x360@15 and 320x180@7 from portal descriptor 42, node 77.
CaptureConfig MakeThreeBranchConfig();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_CAPTURE_FIXTURE_H_
