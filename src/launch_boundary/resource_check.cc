#include "launch_boundary/resource_check.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <latch>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "base/coded_error.h"
#include "base/unique_fd.h"

namespace linux_capture {
namespace {

// Counted on running captures: the source, its queue and our own thread, one
// for each branch, four for each recorded object and six for PipeWire and the
// mix. Nobody records so many objects that more would have to be tried.
std::size_t ThreadsOf(const CaptureConfig& config) {
  constexpr std::size_t kMostTried = 64;
  const std::size_t sounds = config.pipeWireTargetObjects.size();
  const std::size_t threads =
      5 + config.branches.size() + (sounds == 0 ? 0 : 6 + 4 * sounds);
  return std::min(threads, kMostTried);
}

// As many as opening an X11 or a PipeWire connection takes at its height.
constexpr std::size_t kDescriptors = 12;

[[noreturn]] void RefuseResource(std::size_t count, const char* what,
                                 const std::string& reason) {
  throw CodedError(
      error_code::kResourcesExhausted,
      "the capture needs " + std::to_string(count) + what + reason);
}

void RequireDescriptors() {
  std::vector<UniqueFd> tried;
  while (tried.size() < kDescriptors) {
    tried.emplace_back(eventfd(0, EFD_CLOEXEC));
    if (!tried.back()) {
      RefuseResource(kDescriptors,
                     " file descriptors and no more can be opened: ",
                     std::generic_category().message(errno));
    }
  }
}

void RequireThreads(std::size_t count) {
  std::latch release(1);
  std::vector<std::thread> tried;
  std::string reason;
  try {
    while (tried.size() < count) {
      tried.emplace_back([&release] { release.wait(); });
    }
  } catch (const std::system_error& error) {
    reason = error.code().message();
  }
  release.count_down();
  for (std::thread& thread : tried) thread.join();
  if (!reason.empty()) {
    RefuseResource(count, " threads and no more can be started: ", reason);
  }
}

}  // namespace

void RequireThreadsAndDescriptors(const CaptureConfig& config) {
  RequireDescriptors();
  RequireThreads(ThreadsOf(config));
}

}  // namespace linux_capture
