// Asks the desktop portal for a screen cast and holds what it grants for the
// host that started this program. See docs/programs.md.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "common/program_error.h"
#include "portal/host_watch.h"
#include "portal/portal_bus.h"
#include "portal/portal_options.h"
#include "portal/screen_cast.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusUnexpected;
using programs::ProgramError;

// The host copies the descriptor out of this process, for which the kernel asks
// as much as for tracing it. Where Yama's ptrace_scope is 1, as on Ubuntu, only
// ancestors may do that, unless a process names another. Naming the parent
// admits all of the parent's children too, for instance the worker process of a
// host whose main process started this program. Without Yama it does nothing.
void LetHostCopyDescriptors() { prctl(PR_SET_PTRACER, getppid(), 0, 0, 0); }

void Print(const std::string& line) {
  if (std::fprintf(stdout, "%s\n", line.c_str()) < 0 ||
      std::fflush(stdout) != 0) {
    throw HostIsDone();
  }
}

void Run(const PortalOptions& options) {
  HostWatch host(options.timeoutSeconds);
  PortalBus bus(host);
  ScreenCast cast(bus, options);
  host.LiftTimeout();
  LetHostCopyDescriptors();
  Print(ReportOf(cast.stream(), getpid(), cast.pipe_wire_fd()));
  cast.Hold();
}

int Main(const std::vector<std::string>& arguments) {
  const PortalOptions options = ParsePortalOptions(arguments);
  if (options.isHelpAsked) {
    std::fputs(kPortalUsage, stdout);
  } else if (options.isVersionAsked) {
    std::puts("linux-capture-portal " LINUX_CAPTURE_VERSION);
  } else if (fcntl(STDIN_FILENO, F_GETFD) != -1) {
    Run(options);
  }
  // Without any input the host is done before it began. The next descriptor
  // opened would also take the place of the input.
  return 0;
}

}  // namespace
}  // namespace linux_capture::portal

int main(int argc, char** argv) {
  using namespace linux_capture::portal;
  // A host that reads no more shows itself where the line is written.
  signal(SIGPIPE, SIG_IGN);
  try {
    return Main({argv + (argc > 0 ? 1 : 0), argv + argc});
  } catch (const HostIsDone&) {
    return 0;
  } catch (const ProgramError& error) {
    std::fprintf(stderr, "linux-capture-portal: %s\n", error.what());
    return error.status();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "linux-capture-portal: %s\n", error.what());
    return kStatusUnexpected;
  }
}
