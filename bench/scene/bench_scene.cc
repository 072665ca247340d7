// Shows the benchmark's scene on $DISPLAY at a steady rate and writes a line
// "NUMBER NANOSECONDS" for each picture: the monotonic clock when its drawing
// began.

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "arguments.h"
#include "barcode.h"
#include "scene_picture.h"
#include "x11_screen.h"

namespace linux_capture::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    "usage: bench_scene --size WIDTHxHEIGHT --log FILE --hz N\n"
    "         --scene still|moving|terminal|film\n";

volatile sig_atomic_t g_isAskedToEnd = 0;

void AskToEnd(int) { g_isAskedToEnd = 1; }

void Run(const Arguments& arguments) {
  const std::int64_t rate = arguments.Number("--hz", 1, 1000);
  const Size size = arguments.SizeOf("--size");
  std::ofstream log(arguments.Text("--log"));
  if (!log) throw std::runtime_error("the log cannot be written");

  const ScenePicture scene(size.width, size.height,
                           SceneKindOf(arguments.Text("--scene")));
  X11Screen screen(scene);
  const auto period = std::chrono::nanoseconds(std::chrono::seconds(1)) / rate;
  Clock::time_point next = Clock::now();
  for (std::uint32_t number = 0; g_isAskedToEnd == 0;
       number = (number + 1) % kNumberLimit) {
    std::this_thread::sleep_until(next);
    const Clock::time_point now = Clock::now();
    const std::chrono::nanoseconds since = now.time_since_epoch();
    screen.Show(number);
    log << number << ' ' << since.count() << std::endl;
    if (number == 0) {
      std::puts("ready");
      std::fflush(stdout);
    }
    next += period;
    // A late scene goes on from here instead of hurrying to catch up.
    if (next < Clock::now()) next = Clock::now() + period;
  }
}

}  // namespace
}  // namespace linux_capture::bench

int main(int argc, char** argv) {
  using namespace linux_capture::bench;
  try {
    struct sigaction action {};
    action.sa_handler = AskToEnd;
    sigemptyset(&action.sa_mask);
    // Neither the X library nor a write is asked to cope with interruptions.
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    Run(Arguments(argc, argv));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_scene: %s\n%s", error.what(), kUsage);
    return 1;
  }
}
