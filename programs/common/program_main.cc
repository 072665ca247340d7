#include "common/program_main.h"

#include <signal.h>

#include <cstdio>
#include <exception>

#include "common/host_input.h"
#include "common/program_error.h"
#include "common/visible_text.h"

namespace linux_capture::programs {
namespace {

int Complain(const char* name, const char* message, int status) {
  std::fprintf(stderr, "%s: %s\n", name, VisibleText(message).c_str());
  return status;
}

}  // namespace

int RunProgram(const char* name, int argc, char** argv,
               int (*run)(const std::vector<std::string>& arguments)) {
  // A reader or a server that has gone shows itself where it is written to.
  signal(SIGPIPE, SIG_IGN);
  try {
    return run({argv + (argc > 0 ? 1 : 0), argv + argc});
  } catch (const HostIsDone&) {
    return 0;
  } catch (const ProgramError& error) {
    return Complain(name, error.what(), error.status());
  } catch (const std::exception& error) {
    return Complain(name, error.what(), kStatusUnexpected);
  }
}

}  // namespace linux_capture::programs
