// Lets the user draw a rectangle on the screen. See docs/programs.md.

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "base/expendable_thread.h"
#include "base/unique_fd.h"
#include "common/host_process.h"
#include "common/output.h"
#include "common/program_error.h"
#include "common/program_main.h"
#include "common/program_options.h"
#include "select/selection.h"

namespace linux_capture::select {
namespace {

using programs::kStatusUnexpected;
using programs::ProgramError;

constexpr const char* kUsage =
    "usage: linux-capture-select\n"
    "\n"
    "Lets the user draw a rectangle on the screen of the X display with the\n"
    "first button of the mouse, and prints it as one line of JSON. Esc and "
    "the\n"
    "third button give up.\n"
    "\n"
    "  --help, --version\n"
    "\n"
    "The picture of what is drawn:\n"
    "  linux-capture-select |\n"
    "    jq -r '\"\\(.x),\\(.y),\\(.width)x\\(.height)\"' |\n"
    "    xargs linux-capture-shot --rectangle > part.png\n";

// Owned by whoever of both threads is the last.
struct Result {
  UniqueFd isThere{eventfd(0, EFD_CLOEXEC)};
  Rectangle rectangle;
  std::exception_ptr failure;
};

void Work(Result& result) {
  try {
    result.rectangle = SelectRectangle();
  } catch (...) {
    result.failure = std::current_exception();
  }
  const std::uint64_t one = 1;
  // Nothing else is ever written there, so that it cannot fail.
  [[maybe_unused]] const ssize_t written =
      write(result.isThere.get(), &one, sizeof one);
}

std::string ReportOf(const Rectangle& rectangle) {
  return "{\"x\":" + std::to_string(rectangle.x) +
         ",\"y\":" + std::to_string(rectangle.y) +
         ",\"width\":" + std::to_string(rectangle.width) +
         ",\"height\":" + std::to_string(rectangle.height) + "}";
}

int Main(const std::vector<std::string>& arguments) {
  if (!programs::ParseArguments(
          arguments, {},
          {kUsage, "linux-capture-select " LINUX_CAPTURE_VERSION})) {
    return 0;
  }
  programs::HostProcess host;
  const auto result = std::make_shared<Result>();
  // Xlib waits without a limit, and this thread looks after the host meanwhile.
  ExpendableThread thread;
  thread.Leave([result] { Work(*result); });
  constexpr std::chrono::hours kTurn{1};
  while (!host.WaitFor(result->isThere.get(), kTurn)) {
    // The user may take any time.
  }
  if (result->failure) std::rethrow_exception(result->failure);
  if (!programs::PrintLine(ReportOf(result->rectangle))) {
    throw ProgramError(kStatusUnexpected, "the rectangle cannot be written");
  }
  return 0;
}

}  // namespace
}  // namespace linux_capture::select

int main(int argc, char** argv) {
  const int status = linux_capture::programs::RunProgram(
      "linux-capture-select", argc, argv, linux_capture::select::Main);
  // Without the clean-up of a process, which is not for two threads.
  _exit(status);
}
