#include "fake_portal_options.h"

#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace linux_capture::fake_portal {
namespace {

std::uint32_t ParseNumber(std::string_view text, const std::string& option) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || parsed != end) {
    throw std::runtime_error(option + " cannot be \"" + std::string(text) +
                             "\"");
  }
  return value;
}

std::pair<std::string, std::string> ParsePair(const std::string& text,
                                              const std::string& option) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw std::runtime_error(option + " needs METHOD=VALUE");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void ParseValue(const std::string& option, const std::string& value,
                FakePortalOptions& options) {
  if (option == "--version") {
    options.version = ParseNumber(value, option);
  } else if (option == "--types") {
    options.types = ParseNumber(value, option);
  } else if (option == "--cursors") {
    options.cursors = ParseNumber(value, option);
  } else if (option == "--code") {
    const auto [method, code] = ParsePair(value, option);
    options.codes[method] = ParseNumber(code, option);
  } else if (option == "--mood") {
    options.moods.insert(ParsePair(value, option));
  } else if (option == "--restore-token") {
    options.restoreToken = value;
  } else if (option == "--streams") {
    options.streams = value;
  } else if (option == "--remote") {
    options.remote = value;
  } else {
    throw std::runtime_error("unknown option " + option);
  }
}

}  // namespace

const char kUsage[] =
    "usage: fake_portal [--version N] [--types BITS] [--cursors BITS]\n"
    "                   [--code METHOD=N]... [--mood METHOD=refuse|wait]...\n"
    "                   [--restore-token TEXT] [--streams VARIANT]\n"
    "                   [--remote SOCKET]\n"
    "                   [--early] [--own-paths] [--no-screen-cast]\n";

FakePortalOptions ParseFakePortalOptions(
    const std::vector<std::string>& arguments) {
  FakePortalOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--early") {
      options.isEarly = true;
    } else if (option == "--own-paths") {
      options.choosesPaths = true;
    } else if (option == "--no-screen-cast") {
      options.hasScreenCast = false;
    } else if (++i == arguments.size()) {
      throw std::runtime_error(option + " needs a value");
    } else {
      ParseValue(option, arguments[i], options);
    }
  }
  return options;
}

}  // namespace linux_capture::fake_portal
