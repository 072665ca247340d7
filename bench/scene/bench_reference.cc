// Writes pictures of the benchmark's scene as I420 to standard output, made
// from their numbers alone: what a lossless, exact capture of them would be.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <vector>

#include "arguments.h"
#include "canvas.h"
#include "i420.h"
#include "scene_picture.h"

namespace linux_capture::bench {
namespace {

constexpr const char* kUsage =
    "usage: bench_reference --size WIDTHxHEIGHT --to WIDTHxHEIGHT\n"
    "         --scene KIND --matrix bt709|bt601 --range full|limited\n"
    "         NUMBER...\n";

void Write(const std::vector<std::uint8_t>& plane) {
  if (std::fwrite(plane.data(), 1, plane.size(), stdout) != plane.size()) {
    throw std::runtime_error("the output cannot be written");
  }
}

void Run(const Arguments& arguments) {
  const Size size = arguments.SizeOf("--size");
  const Size to = arguments.SizeOf("--to");
  const ColourCode code =
      ColourCodeOf(arguments.Text("--matrix"), arguments.Text("--range"));
  const ScenePicture scene(size.width, size.height,
                           SceneKindOf(arguments.Text("--scene")));
  Canvas canvas(size.width, size.height);
  for (const std::uint32_t number : arguments.PictureNumbers()) {
    DrawSteps(scene.Steps(number, std::nullopt), canvas);
    const I420Picture picture =
        ConvertToI420(canvas, to.width, to.height, code);
    Write(picture.y);
    Write(picture.u);
    Write(picture.v);
  }
  if (std::fflush(stdout) != 0) {
    throw std::runtime_error("the output cannot be written");
  }
}

}  // namespace
}  // namespace linux_capture::bench

int main(int argc, char** argv) {
  using namespace linux_capture::bench;
  try {
    Run(Arguments(argc, argv));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_reference: %s\n%s", error.what(), kUsage);
    return 1;
  }
}
