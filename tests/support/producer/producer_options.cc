#include "producer_options.h"

#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace linux_capture::producer {
namespace {

constexpr std::uint32_t kMaxSize = 8192;

// The smallest picture in which the sixteen barcode cells are still cells.
constexpr std::uint32_t kMinSize = 32;

std::uint32_t ParseNumber(std::string_view text, const std::string& option,
                          std::uint32_t low, std::uint32_t high) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || parsed != end || value < low || value > high) {
    throw std::runtime_error(option + " cannot be \"" + std::string(text) +
                             "\"");
  }
  return value;
}

void ParseSize(const std::string& text, ProducerOptions& options) {
  const std::size_t cross = text.find('x');
  if (cross == std::string::npos) {
    throw std::runtime_error("--size needs WIDTHxHEIGHT, not \"" + text + "\"");
  }
  const std::string_view view(text);
  options.width =
      ParseNumber(view.substr(0, cross), "--size", kMinSize, kMaxSize);
  options.height =
      ParseNumber(view.substr(cross + 1), "--size", kMinSize, kMaxSize);
}

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
    ParseSize(value, options);
  } else if (option == "--format") {
    options.format = value;
  } else if (option == "--fps") {
    options.fps = ParseNumber(value, option, 1, 240);
  } else if (option == "--rates") {
    options.rateOffer = ParseRateOffer(value);
  } else if (option == "--click-every") {
    options.clickEvery = ParseNumber(value, option, 1, 60);
  } else if (option == "--tone") {
    options.toneHertz = ParseNumber(value, option, 20, 20'000);
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
