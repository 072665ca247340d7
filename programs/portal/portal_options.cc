#include "portal/portal_options.h"

#include <charconv>
#include <cstddef>
#include <system_error>

#include "common/program_error.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusUsage;
using programs::ProgramError;

constexpr std::uint32_t kMaxTimeoutSeconds = 86'400;

std::uint32_t BitNamed(std::span<const NamedBit> known, std::string_view name,
                       const std::string& option) {
  std::string names;
  for (const NamedBit& entry : known) {
    if (entry.name == name) return entry.bit;
    names += (names.empty() ? "" : ", ") + std::string(entry.name);
  }
  throw ProgramError(
      kStatusUsage,
      option + " cannot be \"" + std::string(name) + "\"; it takes: " + names);
}

std::uint32_t ParseTypes(std::string_view text, const std::string& option) {
  std::uint32_t types = 0;
  for (;;) {
    const std::size_t comma = text.find(',');
    types |= BitNamed(kTypeNames, text.substr(0, comma), option);
    if (comma == std::string_view::npos) return types;
    text.remove_prefix(comma + 1);
  }
}

std::uint32_t ParseSeconds(const std::string& text, const std::string& option) {
  std::uint32_t seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc{} || parsed != end || seconds < 1 ||
      seconds > kMaxTimeoutSeconds) {
    throw ProgramError(kStatusUsage,
                       option + " takes a number of seconds from 1 to " +
                           std::to_string(kMaxTimeoutSeconds) + ", not \"" +
                           text + "\"");
  }
  return seconds;
}

void ParseValue(const std::string& option, const std::string& value,
                PortalOptions& options) {
  if (option == "--types") {
    options.types = ParseTypes(value, option);
  } else if (option == "--cursor") {
    options.cursor = BitNamed(kCursorNames, value, option);
  } else if (option == "--persist") {
    options.persist = BitNamed(kPersistNames, value, option);
  } else if (option == "--restore-token") {
    if (value.empty()) {
      throw ProgramError(kStatusUsage, "--restore-token cannot be empty");
    }
    options.restoreToken = value;
  } else {
    options.timeoutSeconds = ParseSeconds(value, option);
  }
}

bool TakesValue(const std::string& option) {
  return option == "--types" || option == "--cursor" || option == "--persist" ||
         option == "--restore-token" || option == "--timeout";
}

}  // namespace

const char kPortalUsage[] =
    "usage: linux-capture-portal [option]...\n"
    "\n"
    "Asks the desktop portal for a screen cast, prints the granted stream as\n"
    "one line of JSON and holds it until standard input is closed.\n"
    "\n"
    "  --types monitor,window    what the user may choose from\n"
    "                            (default: both, as far as the portal can)\n"
    "  --cursor hidden|embedded|metadata\n"
    "                            (default: embedded where the portal can)\n"
    "  --persist none|session|permanent\n"
    "                            how long the choice may be restored\n"
    "                            (default: none)\n"
    "  --restore-token TOKEN     restore an earlier choice\n"
    "  --timeout SECONDS         give up when the stream is not granted\n"
    "                            by then (default: wait for the user)\n"
    "  --help, --version\n";

PortalOptions ParsePortalOptions(const std::vector<std::string>& arguments) {
  PortalOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--help") {
      options.isHelpAsked = true;
    } else if (option == "--version") {
      options.isVersionAsked = true;
    } else if (!TakesValue(option)) {
      throw ProgramError(kStatusUsage, "unknown option \"" + option +
                                           "\"; --help lists all of them");
    } else if (++i == arguments.size()) {
      throw ProgramError(kStatusUsage, option + " needs a value");
    } else {
      ParseValue(option, arguments[i], options);
    }
  }
  return options;
}

std::string NamesOf(std::span<const NamedBit> known, std::uint32_t bits) {
  std::string names;
  for (const NamedBit& entry : known) {
    if ((bits & entry.bit) == 0) continue;
    names += (names.empty() ? "" : ", ") + std::string(entry.name);
  }
  return names.empty() ? "none" : names;
}

}  // namespace linux_capture::portal
