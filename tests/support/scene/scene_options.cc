#include "scene_options.h"

#include <cstddef>
#include <stdexcept>
#include <tuple>

#include "../options/number_option.h"

namespace linux_capture::scene {
namespace {

// X11 coordinates travel as 16 bits; anything larger cannot be drawn.
constexpr int kMaxCoordinate = 32767;

// The smallest picture in which the sixteen barcode cells are still cells.
constexpr int kMinSize = 32;

using options::ParseNumber;

}  // namespace

const char kUsage[] =
    "usage: scene [--size WIDTHxHEIGHT] [--fps N] [--seconds N] [--x N] "
    "[--y N] [--static] [--frame]\n";

SceneOptions ParseSceneOptions(const std::vector<std::string>& arguments) {
  SceneOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--static") {
      options.isStatic = true;
      continue;
    }
    if (option == "--frame") {
      options.isFramed = true;
      continue;
    }
    if (option != "--size" && option != "--fps" && option != "--seconds" &&
        option != "--x" && option != "--y") {
      throw std::runtime_error("unknown option " + option);
    }
    if (++i == arguments.size()) {
      throw std::runtime_error(option + " needs a value");
    }
    const std::string& value = arguments[i];
    if (option == "--size") {
      std::tie(options.width, options.height) =
          options::ParseSize(value, kMinSize, kMaxCoordinate);
    } else if (option == "--fps") {
      options.fps = ParseNumber(value, option, 1, 1000);
    } else if (option == "--seconds") {
      options.seconds = ParseNumber(value, option, 0.0, 1e6);
    } else if (option == "--x") {
      options.x = ParseNumber(value, option, -kMaxCoordinate, kMaxCoordinate);
    } else {
      options.y = ParseNumber(value, option, -kMaxCoordinate, kMaxCoordinate);
    }
  }
  return options;
}

}  // namespace linux_capture::scene
