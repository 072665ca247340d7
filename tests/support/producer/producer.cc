// A PipeWire producer for tests: numbered pictures, and clicks if asked for.
// It takes one command a line on its standard input and ends with it:
//
//   hold         sends nothing any more
//   send         sends at its rate again
//   once         sends one picture
//   jump SECONDS shifts the timestamps of all later pictures
//   resize WxH   goes on with pictures of another size
//   format NAME  goes on with another order of the colours
//   pause        pauses its streams, as applications do
//   resume       goes on with them

#include <pipewire/pipewire.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "click_stream.h"
#include "producer_options.h"
#include "stream_handles.h"
#include "video_stream.h"

namespace linux_capture::producer {
namespace {

struct Program {
  MainLoopPtr loop;
  std::unique_ptr<VideoStream> video;
  std::unique_ptr<ClickStream> click;
  std::string input;
};

void Obey(Program& program, const std::string& command) {
  VideoStream& video = *program.video;
  if (command == "hold") {
    video.set_sending(false);
    std::printf("holding\n");
  } else if (command == "send") {
    video.set_sending(true);
  } else if (command == "once") {
    video.SendOne();
  } else if (command.starts_with("jump ")) {
    video.Jump(std::strtoll(command.c_str() + 5, nullptr, 10));
  } else if (command.starts_with("resize ")) {
    char* end = nullptr;
    const auto width = std::strtoul(command.c_str() + 7, &end, 10);
    const auto height = *end == 'x' ? std::strtoul(end + 1, nullptr, 10) : 0;
    video.Resize(static_cast<std::uint32_t>(width),
                 static_cast<std::uint32_t>(height));
  } else if (command.starts_with("format ")) {
    video.Reformat(command.substr(7));
  } else if (command == "pause" || command == "resume") {
    const bool isActive = command == "resume";
    video.set_active(isActive);
    if (program.click) program.click->set_active(isActive);
    std::printf("%s\n", isActive ? "resumed" : "paused");
  } else {
    std::fprintf(stderr, "producer: unknown command \"%s\"\n", command.c_str());
  }
}

void OnInput(void* data, int fd, std::uint32_t) {
  auto* program = static_cast<Program*>(data);
  std::array<char, 256> bytes{};
  const ssize_t count = read(fd, bytes.data(), bytes.size());
  if (count <= 0) {
    pw_main_loop_quit(program->loop.get());
    return;
  }
  program->input.append(bytes.data(), static_cast<std::size_t>(count));
  std::size_t end = 0;
  while ((end = program->input.find('\n')) != std::string::npos) {
    Obey(*program, program->input.substr(0, end));
    program->input.erase(0, end + 1);
  }
}

void Run(const ProducerOptions& options) {
  Program program;
  program.loop.reset(pw_main_loop_new(nullptr));
  if (!program.loop) throw std::runtime_error("there is no main loop");
  pw_loop* loop = pw_main_loop_get_loop(program.loop.get());
  program.video = std::make_unique<VideoStream>(loop, options);
  if (options.clickEvery > 0 || options.toneHertz > 0) {
    program.click = std::make_unique<ClickStream>(
        loop, options, [&program] { program.video->Flash(); });
  }
  pw_loop_add_io(loop, STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP, false, OnInput,
                 &program);
  pw_main_loop_run(program.loop.get());
}

}  // namespace
}  // namespace linux_capture::producer

int main(int argc, char** argv) {
  using namespace linux_capture::producer;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  pw_init(nullptr, nullptr);
  int status = 0;
  try {
    Run(ParseProducerOptions({argv + (argc > 0 ? 1 : 0), argv + argc}));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "producer: %s\n%s", error.what(), kUsage);
    status = 1;
  }
  pw_deinit();
  return status;
}
