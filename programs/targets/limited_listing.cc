#include "targets/limited_listing.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
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

std::atomic<int> g_threads{0};

using Clock = std::chrono::steady_clock;

thread_local bool t_asksDisplay = false;
std::atomic<bool> g_isAnswerUnreadable{false};

// Xlib aborts over an answer that it cannot make sense of. The sound can be
// listed all the same, so the thread stays where it is and nothing else does.
extern "C" void StayInsteadOfAborting(int /*signal*/) {
  if (!t_asksDisplay) {
    std::signal(SIGABRT, SIG_DFL);
    std::raise(SIGABRT);
    return;
  }
  g_isAnswerUnreadable.store(true);
  for (;;) pause();
}

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
    const auto onStep = [this] {
      const std::scoped_lock lock(mutex);
      lastStep = Clock::now();
    };
    const auto onLost = [this] {
      End({}, std::make_exception_ptr(
                  std::runtime_error(DisplayPhrase() + " went away")));
    };
    t_asksDisplay = true;
    std::signal(SIGABRT, StayInsteadOfAborting);
    try {
      End(ListX11Targets(onStep, onLost), nullptr);
    } catch (...) {
      End({}, std::current_exception());
    }
  }

  void End(X11Targets found, std::exception_ptr failure) {
    const std::scoped_lock lock(mutex);
    targets = std::move(found);
    error = std::move(failure);
    isDone = true;
    done.notify_one();
  }
};

LimitedX11Listing::LimitedX11Listing() : shared_(std::make_shared<Shared>()) {
  ++g_threads;
  std::thread([shared = shared_] {
    shared->Run();
    --g_threads;
  }).detach();
}

bool LimitedX11Listing::IsThreadLeft() { return g_threads > 0; }

X11Targets LimitedX11Listing::Take(programs::Host& host) {
  constexpr std::chrono::milliseconds kTurn{100};
  std::unique_lock lock(shared_->mutex);
  while (!shared_->isDone) {
    host.WaitFor(programs::Host::kNothing, std::chrono::milliseconds(0));
    if (g_isAnswerUnreadable.load()) {
      throw std::runtime_error(DisplayPhrase() +
                               " sends answers that Xlib cannot read");
    }
    const Clock::time_point deadline = shared_->lastStep + kLongestSilence;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
      throw std::runtime_error(DisplayPhrase() + " does not answer (waited " +
                               std::to_string(kLongestSilence.count()) +
                               " seconds)");
    }
    shared_->done.wait_until(lock, std::min(deadline, now + kTurn));
  }
  if (shared_->error) std::rethrow_exception(shared_->error);
  return std::move(shared_->targets);
}

}  // namespace linux_capture::targets
