// Lists what can be captured here: the monitors and windows of the X display
// and the sound that PipeWire plays. See docs/programs.md.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "common/program_error.h"
#include "targets/pipewire_targets.h"
#include "targets/targets_report.h"
#include "targets/x11_targets.h"

namespace linux_capture::targets {
namespace {

using programs::kStatusUnexpected;
using programs::kStatusUsage;
using programs::ProgramError;

constexpr const char* kUsage =
    "usage: linux-capture-targets [option]...\n"
    "\n"
    "Prints what can be captured here as one line of JSON.\n"
    "\n"
    "  --pipewire         the sound that applications play, and the sinks\n"
    "  --x11              the monitors and windows of the X display\n"
    "                     (default: both)\n"
    "  --help, --version\n";

template <typename Targets>
std::optional<Targets> TryToList(Targets (*list)(), const char* part,
                                 std::vector<Problem>& problems) {
  try {
    return list();
  } catch (const std::exception& error) {
    problems.push_back({part, error.what()});
    return std::nullopt;
  }
}

int Main(const std::vector<std::string>& arguments) {
  bool isPipeWireAsked = false;
  bool isX11Asked = false;
  for (const std::string& option : arguments) {
    if (option == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (option == "--version") {
      std::puts("linux-capture-targets " LINUX_CAPTURE_VERSION);
      return 0;
    }
    if (option != "--pipewire" && option != "--x11") {
      throw ProgramError(kStatusUsage, "unknown option \"" + option +
                                           "\"; --help lists all of them");
    }
    (option == "--pipewire" ? isPipeWireAsked : isX11Asked) = true;
  }
  const bool isAllAsked = !isPipeWireAsked && !isX11Asked;

  std::vector<Problem> problems;
  std::optional<PipeWireTargets> pipeWire;
  std::optional<X11Targets> x11;
  if (isPipeWireAsked || isAllAsked) {
    pipeWire = TryToList(ListPipeWireTargets, "pipewire", problems);
  }
  if (isX11Asked || isAllAsked) {
    x11 = TryToList(ListX11Targets, "x11", problems);
  }
  std::puts(ReportOf(pipeWire, x11, problems).c_str());
  if (std::fflush(stdout) != 0) {
    throw ProgramError(kStatusUnexpected, "the list cannot be written");
  }
  return 0;
}

}  // namespace
}  // namespace linux_capture::targets

int main(int argc, char** argv) {
  using namespace linux_capture::targets;
  try {
    return Main({argv + (argc > 0 ? 1 : 0), argv + argc});
  } catch (const ProgramError& error) {
    std::fprintf(stderr, "linux-capture-targets: %s\n", error.what());
    return error.status();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "linux-capture-targets: %s\n", error.what());
    return kStatusUnexpected;
  }
}
