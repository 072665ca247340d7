#include "support/stage_lines.h"

#include <gtest/gtest.h>

#include <exception>
#include <sstream>

namespace linux_capture {

std::vector<std::string> StagesDuring(const std::function<void()>& action) {
  ::testing::internal::CaptureStderr();
  std::exception_ptr failure;
  try {
    action();
  } catch (...) {
    failure = std::current_exception();
  }
  std::istringstream lines(::testing::internal::GetCapturedStderr());
  if (failure) std::rethrow_exception(failure);
  std::vector<std::string> stages;
  for (std::string line; std::getline(lines, line);) {
    constexpr const char* kMark = " stage=";
    const std::size_t at = line.find(kMark);
    if (line.rfind("[linux_capture_stage] pid=", 0) == 0 &&
        at != std::string::npos) {
      stages.push_back(line.substr(at + std::string(kMark).size()));
    }
  }
  return stages;
}

std::string MessageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

}  // namespace linux_capture
