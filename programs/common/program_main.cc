#include "common/program_main.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "base/unique_fd.h"
#include "common/host.h"
#include "common/program_error.h"
#include "common/visible_text.h"

namespace linux_capture::programs {
namespace {

// The next descriptor that is opened would take the place of one that is
// missing, and the output would go to a server. This one cannot be written.
void HoldPlacesOfOutputs() {
  for (const int place : {STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(place, F_GETFD) != -1) continue;
    UniqueFd nothing(open("/dev/null", O_RDONLY));
    if (nothing.get() != place) {
      dup2(nothing.get(), place);
    } else {
      nothing.release();
    }
  }
}

int Complain(const char* name, const char* message, int status) {
  std::fprintf(stderr, "%s: %s\n", name, VisibleText(message).c_str());
  return status;
}

}  // namespace

int RunProgram(const char* name, int argc, char** argv,
               int (*run)(const std::vector<std::string>& arguments)) {
  HoldPlacesOfOutputs();
  // A reader or a server that has gone shows itself where it is written to.
  signal(SIGPIPE, SIG_IGN);
  try {
    const int status = run({argv + (argc > 0 ? 1 : 0), argv + argc});
    // Some leave without the clean-up of a process, which does it otherwise.
    std::fflush(stdout);
    return status;
  } catch (const HostIsDone&) {
    return 0;
  } catch (const ProgramError& error) {
    return Complain(name, error.what(), error.status());
  } catch (const std::exception& error) {
    return Complain(name, error.what(), kStatusUnexpected);
  }
}

}  // namespace linux_capture::programs
