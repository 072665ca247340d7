#include "launch_boundary/resource_check.h"

#include <glib.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <latch>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "base/coded_error.h"
#include "base/unique_fd.h"

namespace linux_capture {
namespace {

// Counted on running captures: the source, its queue, our own two, one for each
// branch and one for GStreamer's use; four for each recorded object and six for
// PipeWire and the mix. Nobody records so many objects that more would have to
// be tried.
std::size_t ThreadsOf(const CaptureConfig& config) {
  constexpr std::size_t kMostTried = 64;
  const std::size_t sounds = config.pipeWireTargetObjects.size();
  const std::size_t threads =
      5 + config.branches.size() + (sounds == 0 ? 0 : 6 + 4 * sounds);
  return std::min(threads, kMostTried);
}

// Our own, which are always new.
constexpr std::size_t kOwnThreads = 2;

// The threads of a capture that has ended wait in GStreamer's pool for half a
// second, where nobody can count them, and then in GLib's.
constexpr gint64 kPoolWaitUs = 500'000;
std::size_t g_endedThreads GUARDED_BY(g_mutex) = 0;
gint64 g_endedAtUs GUARDED_BY(g_mutex) = 0;

// Those that have to be started.
std::size_t NewThreadsOf(const CaptureConfig& config) REQUIRES(g_mutex) {
  const std::size_t all = ThreadsOf(config);
  std::size_t kept = g_thread_pool_get_num_unused_threads();
  if (g_get_monotonic_time() - g_endedAtUs < kPoolWaitUs) {
    kept = std::max(kept, g_endedThreads);
  }
  return std::max(kOwnThreads, all - std::min(all, kept));
}

// More than opening an X11 or a PipeWire connection takes at its height.
constexpr std::size_t kEnoughDescriptors = 12;

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
    throw CodedError(error_code::kResourcesExhausted,
                     "the capture needs " + std::to_string(count) +
                         " threads and no more can be started: " + reason);
  }
}

}  // namespace

void NoteEndedCapture(const CaptureConfig& config) {
  g_endedThreads = ThreadsOf(config) - kOwnThreads;
  g_endedAtUs = g_get_monotonic_time();
}

void RequireThreads(const CaptureConfig& config) {
  RequireThreads(NewThreadsOf(config));
}

void ThrowIfShortOfDescriptors() {
  std::vector<UniqueFd> left;
  while (left.size() < kEnoughDescriptors) {
    UniqueFd fd(eventfd(0, EFD_CLOEXEC));
    if (!fd) {
      throw CodedError(error_code::kResourcesExhausted,
                       "the capture could not be started with " +
                           std::to_string(left.size()) +
                           " file descriptors left: " +
                           std::generic_category().message(errno));
    }
    left.push_back(std::move(fd));
  }
}

}  // namespace linux_capture
