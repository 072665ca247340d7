#include "targets/sound_follower.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/output.h"
#include "common/visible_text.h"
#include "targets/pipewire_listing.h"
#include "targets/pipewire_targets.h"
#include "targets/targets_report.h"

namespace linux_capture::targets {
namespace {

// An application may rename its stream with every line of a song.
constexpr std::chrono::milliseconds kShortestPause{100};
constexpr std::chrono::seconds kReconnectPause{1};

class Printer {
 public:
  explicit Printer(programs::HostInput& host) : host_(host) {}

  // False when nobody reads any more.
  bool Print(const std::optional<PipeWireTargets>& targets,
             const std::vector<Problem>& problems) {
    std::string line = ReportOf(targets, std::nullopt, problems);
    if (line == last_) return true;
    last_ = std::move(line);
    return programs::PrintLine(last_, &host_);
  }

 private:
  programs::HostInput& host_;
  std::string last_;
};

// Returns when nobody reads any more; throws when the daemon is lost.
void FollowDaemon(programs::HostInput& host, Printer& printer) {
  PipeWireListing listing(host);
  while (printer.Print(TargetsOf(listing), {})) {
    host.WaitFor(programs::Host::kNothing, kShortestPause);
    listing.WaitForChange();
  }
}

}  // namespace

void FollowSound(programs::HostInput& host) {
  Printer printer(host);
  for (;;) {
    std::string problem;
    try {
      FollowDaemon(host, printer);
      return;
    } catch (const std::runtime_error& error) {
      problem = programs::VisibleText(error.what());
    }
    if (!printer.Print(std::nullopt, {{"pipewire", problem}})) return;
    host.WaitFor(programs::Host::kNothing, kReconnectPause);
  }
}

}  // namespace linux_capture::targets
