// Shows a scene of known, numbered pictures in a window of $DISPLAY, for tests
// and the demonstration to capture.

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <thread>

#include "scene_options.h"
#include "scene_window.h"

namespace linux_capture::scene {
namespace {

using Clock = std::chrono::steady_clock;

volatile sig_atomic_t g_isAskedToEnd = 0;
volatile sig_atomic_t g_isAskedToDestroyWindow = 0;

void AskToEnd(int) { g_isAskedToEnd = 1; }
void AskToDestroyWindow(int) { g_isAskedToDestroyWindow = 1; }

void InstallHandler(int signalNumber, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  // The X library is not asked to cope with interrupted reads.
  action.sa_flags = SA_RESTART;
  sigaction(signalNumber, &action, nullptr);
}

void Run(const SceneOptions& options) {
  SceneWindow window(options);
  std::uint16_t number = 0;
  window.Show(number);
  std::printf("ready window=0x%lx\n", window.id());
  std::fflush(stdout);

  const auto period = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(1.0 / options.fps));
  const Clock::time_point begin = Clock::now();
  const bool isLimited = options.seconds > 0.0;
  const auto limit = std::chrono::duration<double>(options.seconds);
  Clock::time_point next = begin + period;

  while (g_isAskedToEnd == 0) {
    std::this_thread::sleep_until(next);
    const Clock::time_point now = Clock::now();
    if (isLimited && now - begin >= limit) {
      return;
    }
    next += period;
    if (next < now) {
      // A late scene goes on from here instead of hurrying to catch up.
      next = now + period;
    }
    if (g_isAskedToDestroyWindow != 0) {
      window.Destroy();
    }
    if (!options.isStatic) {
      window.Show(++number);
    }
    window.RepaintIfExposed();
  }
}

}  // namespace
}  // namespace linux_capture::scene

int main(int argc, char** argv) {
  using namespace linux_capture::scene;
  try {
    const SceneOptions options =
        ParseSceneOptions({argv + (argc > 0 ? 1 : 0), argv + argc});
    InstallHandler(SIGTERM, AskToEnd);
    InstallHandler(SIGINT, AskToEnd);
    InstallHandler(SIGUSR1, AskToDestroyWindow);
    Run(options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "scene: %s\n%s", error.what(), kUsage);
    return 1;
  }
}
