// Lists what can be captured here: the monitors and windows of the X display
// and the sound that PipeWire plays. See docs/programs.md.

#include <pipewire/pipewire.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "common/host_input.h"
#include "common/host_process.h"
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

template <typename Function>
auto TryToList(Function list, const char* part, std::vector<Problem>& problems)
    -> std::optional<decltype(list())> {
  try {
    return list();
  } catch (const programs::HostIsDone&) {
    throw;
  } catch (const std::exception& error) {
    problems.push_back({part, programs::VisibleText(error.what())});
    return std::nullopt;
  }
}

// Returns the exit status.
int List(const Options& options) {
  const bool isAllAsked = !options.isPipeWireAsked && !options.isX11Asked;
  programs::HostProcess host;
  std::vector<Problem> problems;
  std::optional<LimitedX11Listing> x11Listing;
  // Both at the same time: either may have to be waited for.
  if (options.isX11Asked || isAllAsked) x11Listing.emplace();
  std::optional<PipeWireTargets> pipeWire;
  if (options.isPipeWireAsked || isAllAsked) {
    pipeWire = TryToList([&] { return TargetsOf(PipeWireListing(host)); },
                         "pipewire", problems);
  }
  std::optional<X11Targets> x11;
  if (x11Listing) {
    x11 = TryToList([&] { return x11Listing->Take(host); }, "x11", problems);
  }
  if (!programs::PrintLine(ReportOf(pipeWire, x11, problems))) {
    throw ProgramError(kStatusUnexpected, "the list cannot be written");
  }
  return 0;
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
  // What matters of its complaints is in the problems.
  if (std::getenv("PIPEWIRE_DEBUG") == nullptr) {
    pw_log_set_level(SPA_LOG_LEVEL_NONE);
  }
  if (!options.isFollowAsked) return List(options);
  if (programs::HostInput::IsThere()) {
    programs::HostInput host;
    FollowSound(host);
  }
  return 0;
}

}  // namespace
}  // namespace linux_capture::targets

int main(int argc, char** argv) {
  const int status = linux_capture::programs::RunProgram(
      "linux-capture-targets", argc, argv, linux_capture::targets::Main);
  if (linux_capture::targets::LimitedX11Listing::IsThreadLeft()) {
    // Without the clean-up of a process, which is not for two threads.
    _exit(status);
  }
  return status;
}
