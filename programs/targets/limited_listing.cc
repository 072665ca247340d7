#include "targets/limited_listing.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "targets/x11_display.h"

namespace linux_capture::targets {
namespace {

// A server answers at once; this is for one on a machine that is very busy.
constexpr std::chrono::seconds kLongestSilence{5};

using Clock = std::chrono::steady_clock;

}  // namespace

// What the thread and the program share; a leaf lock guards all of it.
struct LimitedX11Listing::Shared {
  std::mutex mutex;
  std::condition_variable done;
  Clock::time_point lastStep = Clock::now();
  bool isDone = false;
  X11Targets targets;
  std::exception_ptr error;

  void Run() noexcept {
    X11Targets found;
    std::exception_ptr failure;
    try {
      found = ListX11Targets([this] {
        const std::scoped_lock lock(mutex);
        lastStep = Clock::now();
      });
    } catch (...) {
      failure = std::current_exception();
    }
    const std::scoped_lock lock(mutex);
    targets = std::move(found);
    error = failure;
    isDone = true;
    done.notify_one();
  }
};

LimitedX11Listing::LimitedX11Listing() : shared_(std::make_shared<Shared>()) {
  std::thread([shared = shared_] { shared->Run(); }).detach();
}

X11Targets LimitedX11Listing::Take() {
  std::unique_lock lock(shared_->mutex);
  while (!shared_->isDone) {
    const Clock::time_point deadline = shared_->lastStep + kLongestSilence;
    if (Clock::now() >= deadline) {
      isGivenUp_ = true;
      throw std::runtime_error(DisplayPhrase() + " does not answer (waited " +
                               std::to_string(kLongestSilence.count()) +
                               " seconds)");
    }
    shared_->done.wait_until(lock, deadline);
  }
  if (shared_->error) std::rethrow_exception(shared_->error);
  return std::move(shared_->targets);
}

}  // namespace linux_capture::targets
