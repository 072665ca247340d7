// Lists what can be captured here: the monitors and windows of the X display
// and the sound that PipeWire plays. See docs/programs.md.

#include <pipewire/pipewire.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "common/host_input.h"
#include "common/output.h"
#include "common/program_error.h"
#include "common/program_main.h"
#include "common/program_options.h"
#include "common/visible_text.h"
#include "targets/limited_listing.h"
#include "targets/pipewire_listing.h"
#include "targets/pipewire_targets.h"
#include "targets/sound_follower.h"
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
    "  --follow           the sound, and one more line whenever it changes,\n"
    "                     until standard input is closed\n"
    "  --help, --version\n"
    "\n"
    "The windows, one a line:\n"
    "  linux-capture-targets --x11 | jq -c '.windows[]'\n"
    "The names of what plays, as they come and go, until Ctrl-D:\n"
    "  linux-capture-targets --follow | jq -c '[.applications[]?"
    ".applicationName]'\n";

struct Options {
  bool isPipeWireAsked = false;
  bool isX11Asked = false;
  bool isFollowAsked = false;
};

// A list is short work that nobody waits for any more when the host has died.
void EndWithHost() { prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0); }

template <typename Function>
auto TryToList(Function list, const char* part, std::vector<Problem>& problems)
    -> std::optional<decltype(list())> {
  try {
    return list();
  } catch (const std::exception& error) {
    problems.push_back({part, programs::VisibleText(error.what())});
    return std::nullopt;
  }
}

void List(const Options& options) {
  const bool isAllAsked = !options.isPipeWireAsked && !options.isX11Asked;
  std::vector<Problem> problems;
  std::optional<LimitedX11Listing> x11Listing;
  // Both at the same time: either may have to be waited for.
  if (options.isX11Asked || isAllAsked) x11Listing.emplace();
  std::optional<PipeWireTargets> pipeWire;
  if (options.isPipeWireAsked || isAllAsked) {
    pipeWire = TryToList([] { return TargetsOf(PipeWireListing()); },
                         "pipewire", problems);
  }
  std::optional<X11Targets> x11;
  if (x11Listing) {
    x11 = TryToList([&] { return x11Listing->Take(); }, "x11", problems);
  }
  const bool isPrinted = programs::PrintLine(ReportOf(pipeWire, x11, problems));
  if (isPrinted && x11Listing && x11Listing->is_given_up()) _exit(0);
  if (!isPrinted) {
    throw ProgramError(kStatusUnexpected, "the list cannot be written");
  }
}

int Main(const std::vector<std::string>& arguments) {
  Options options;
  const std::vector<programs::ProgramOption> known{
      {"--pipewire", [&] { options.isPipeWireAsked = true; }},
      {"--x11", [&] { options.isX11Asked = true; }},
      {"--follow", [&] { options.isFollowAsked = true; }},
  };
  if (!programs::ParseArguments(
          arguments, known,
          {kUsage, "linux-capture-targets " LINUX_CAPTURE_VERSION})) {
    return 0;
  }
  if (options.isFollowAsked && options.isX11Asked) {
    throw ProgramError(kStatusUsage,
                       "--follow is for the sound, not for --x11");
  }
  pw_init(nullptr, nullptr);
  if (!options.isFollowAsked) {
    EndWithHost();
    List(options);
  } else if (programs::HostInput::IsThere()) {
    programs::HostInput host;
    FollowSound(host);
  }
  return 0;
}

}  // namespace
}  // namespace linux_capture::targets

int main(int argc, char** argv) {
  return linux_capture::programs::RunProgram(
      "linux-capture-targets", argc, argv, linux_capture::targets::Main);
}
