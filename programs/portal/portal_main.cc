// Asks the desktop portal for a screen cast and holds what it grants for the
// host that started this program. See docs/programs.md.

#include <glib.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "common/host_input.h"
#include "common/output.h"
#include "common/program_error.h"
#include "common/program_main.h"
#include "portal/host_watch.h"
#include "portal/portal_bus.h"
#include "portal/portal_options.h"
#include "portal/screen_cast.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusUsage;
using programs::ProgramError;

// The host copies the descriptor out of this process, for which the kernel asks
// as much as for tracing it. Where Yama's ptrace_scope is 1, as on Ubuntu, only
// ancestors may do that, unless a process names another. Naming the parent
// admits all of the parent's children too, for instance the worker process of a
// host whose main process started this program. Without Yama it does nothing.
void LetHostCopyDescriptors() { prctl(PR_SET_PTRACER, getppid(), 0, 0, 0); }

// The token itself is never repeated in a message.
std::string ReadRestoreToken(HostWatch& host) {
  std::string token = host.WaitForLine();
  if (token.empty()) {
    throw ProgramError(kStatusUsage, "the restore token is empty");
  }
  // Nor does UTF-8 of GLib's kind hold a zero byte.
  if (g_utf8_validate(token.data(), static_cast<gssize>(token.size()),
                      nullptr) == FALSE) {
    throw ProgramError(kStatusUsage, "the restore token is not UTF-8");
  }
  return token;
}

void Run(const PortalOptions& options) {
  HostWatch host(options.timeoutSeconds);
  std::optional<std::string> restoreToken;
  if (options.isRestoreTokenGiven) restoreToken = ReadRestoreToken(host);
  PortalBus bus(host);
  ScreenCast cast(bus, options, restoreToken);
  host.LiftTimeout();
  LetHostCopyDescriptors();
  if (programs::PrintLine(
          ReportOf(cast.stream(), getpid(), cast.pipe_wire_fd()))) {
    cast.Hold();
  }
}

int Main(const std::vector<std::string>& arguments) {
  PortalOptions options;
  if (!ParsePortalOptions(arguments, options)) return 0;
  // Without any input the host is done before it began.
  if (programs::HostInput::IsThere()) Run(options);
  return 0;
}

}  // namespace
}  // namespace linux_capture::portal

int main(int argc, char** argv) {
  return linux_capture::programs::RunProgram("linux-capture-portal", argc, argv,
                                             linux_capture::portal::Main);
}
