#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_STAGE_LINES_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_STAGE_LINES_H_

#include <functional>
#include <string>
#include <vector>

namespace linux_capture {

// The stage texts that `action` writes to standard error, in order. What
// `action` throws is passed on after the output was put back.
std::vector<std::string> StagesDuring(const std::function<void()>& action);

// The message of the std::exception that `action` throws; fails the test and
// gives an empty text when it throws none.
std::string MessageOf(const std::function<void()>& action);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_STAGE_LINES_H_
