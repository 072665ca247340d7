#include "producer_options.h"

#include <cstddef>
#include <stdexcept>
#include <tuple>

#include "../options/number_option.h"

namespace linux_capture::producer {
namespace {

constexpr std::uint32_t kMaxSize = 8192;

// The smallest picture in which the sixteen barcode cells are still cells.
constexpr std::uint32_t kMinSize = 32;

using options::ParseNumber;

RateOffer ParseRateOffer(const std::string& text) {
  if (text == "fixed") return RateOffer::kFixed;
  if (text == "variable") return RateOffer::kVariable;
  if (text == "range") return RateOffer::kRange;
  throw std::runtime_error("--rates cannot be \"" + text + "\"");
}

void ParseValue(const std::string& option, const std::string& value,
                ProducerOptions& options) {
  if (option == "--name") {
    options.name = value;
  } else if (option == "--size") {
    std::tie(options.width, options.height) =
        options::ParseSize(value, kMinSize, kMaxSize);
  } else if (option == "--format") {
    options.format = value;
  } else if (option == "--fps") {
    options.fps = ParseNumber(value, option, 1U, 240U);
  } else if (option == "--rates") {
    options.rateOffer = ParseRateOffer(value);
  } else if (option == "--click-every") {
    options.clickEvery = ParseNumber(value, option, 1U, 60U);
  } else if (option == "--tone") {
    options.toneHertz = ParseNumber(value, option, 20U, 20'000U);
  } else {
    throw std::runtime_error("unknown option " + option);
  }
}

}  // namespace

const char kUsage[] =
    "usage: producer [--name NAME] [--size WIDTHxHEIGHT]\n"
    "                [--format BGRx|BGRA|RGBx|RGBA] [--fps N]\n"
    "                [--rates fixed|variable|range] [--no-timestamps]\n"
    "                [--click-every SECONDS | --tone HERTZ]\n";

ProducerOptions ParseProducerOptions(
    const std::vector<std::string>& arguments) {
  ProducerOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--no-timestamps") {
      options.hasTimestamps = false;
      continue;
    }
    if (++i == arguments.size()) {
      throw std::runtime_error(option + " needs a value");
    }
    ParseValue(option, arguments[i], options);
  }
  return options;
}

}  // namespace linux_capture::producer
