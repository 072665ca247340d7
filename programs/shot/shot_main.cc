// Writes one picture of a source as PNG. See docs/programs.md.

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
#include "shot/picture.h"
#include "shot/shot_options.h"

namespace linux_capture::shot {
namespace {

using programs::kStatusRefused;
using programs::kStatusUnexpected;
using programs::ProgramError;

// For the first picture of a source, on a busy machine.
constexpr std::chrono::seconds kLongest{15};

// Owned by whoever of both threads is the last.
struct Result {
  UniqueFd isThere{eventfd(0, EFD_CLOEXEC)};
  std::string picture;
  std::exception_ptr failure;
};

void Work(const ShotOptions& options, Result& result) {
  try {
    result.picture = TakePicture(options);
  } catch (...) {
    result.failure = std::current_exception();
  }
  const std::uint64_t one = 1;
  // Nothing else is ever written there, so that it cannot fail.
  [[maybe_unused]] const ssize_t written =
      write(result.isThere.get(), &one, sizeof one);
}

int Main(const std::vector<std::string>& arguments) {
  ShotOptions options;
  if (!ParseShotOptions(arguments, options)) return 0;
  programs::HostProcess host;
  const auto result = std::make_shared<Result>();
  // The libraries wait for servers without a limit.
  ExpendableThread thread;
  thread.Leave([options, result] { Work(options, *result); });
  if (!host.WaitFor(result->isThere.get(), kLongest)) {
    throw ProgramError(kStatusRefused, "no picture came within " +
                                           std::to_string(kLongest.count()) +
                                           " seconds");
  }
  if (result->failure) std::rethrow_exception(result->failure);
  if (!programs::Print(result->picture)) {
    throw ProgramError(kStatusUnexpected, "the picture cannot be written");
  }
  return 0;
}

}  // namespace
}  // namespace linux_capture::shot

int main(int argc, char** argv) {
  const int status = linux_capture::programs::RunProgram(
      "linux-capture-shot", argc, argv, linux_capture::shot::Main);
  // Without the clean-up of a process, which is not for two threads.
  _exit(status);
}
