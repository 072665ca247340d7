// Carries packets of RTP and RTCP, which its host makes, to the other side of a
// WebRTC connection: ICE, DTLS and SRTP, and nothing else. See
// docs/programs.md.

#include <unistd.h>

#include <string>
#include <vector>

#include "common/host_input.h"
#include "common/program_main.h"
#include "common/program_options.h"
#include "transport/transport.h"

namespace linux_capture::transport {
namespace {

constexpr const char* kUsage =
    "usage: linux-capture-transport\n"
    "\n"
    "Carries packets to the other side of a WebRTC connection; for programs.\n"
    "Frames come on standard input and go to standard output. It ends when "
    "its\n"
    "input is closed.\n"
    "\n"
    "  --help, --version\n";

int Main(const std::vector<std::string>& arguments) {
  if (!programs::ParseArguments(
          arguments, {},
          {kUsage, "linux-capture-transport " LINUX_CAPTURE_VERSION})) {
    return 0;
  }
  if (!programs::HostInput::IsThere()) return 0;
  Transport(STDIN_FILENO, STDOUT_FILENO).Run();
  return 0;
}

}  // namespace
}  // namespace linux_capture::transport

int main(int argc, char** argv) {
  return linux_capture::programs::RunProgram(
      "linux-capture-transport", argc, argv, linux_capture::transport::Main);
}
