#include "portal/portal_options.h"

#include <charconv>
#include <cstddef>
#include <system_error>

#include "common/program_error.h"
#include "common/program_options.h"

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

constexpr const char* kUsage =
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
    "  --restore-token-stdin     restore an earlier choice, by the token that\n"
    "                            is the first line of standard input\n"
    "  --timeout SECONDS         give up when the stream is not granted\n"
    "                            by then (default: wait for the user)\n"
    "  --help, --version\n"
    "\n"
    "A screen, held until Ctrl-D:\n"
    "  linux-capture-portal --types monitor\n"
    "A choice that is not asked for again, with the token of the last time:\n"
    "  (cat token; cat) | linux-capture-portal --persist permanent \\\n"
    "    --restore-token-stdin\n";

}  // namespace

bool ParsePortalOptions(const std::vector<std::string>& arguments,
                        PortalOptions& options) {
  using Value = const std::string&;
  return programs::ParseArguments(
      arguments,
      {
          {"--types",
           [&](Value value) { options.types = ParseTypes(value, "--types"); }},
          {"--cursor",
           [&](Value value) {
             options.cursor = BitNamed(kCursorNames, value, "--cursor");
           }},
          {"--persist",
           [&](Value value) {
             options.persist = BitNamed(kPersistNames, value, "--persist");
           }},
          {"--restore-token-stdin",
           [&] { options.isRestoreTokenGiven = true; }},
          {"--timeout",
           [&](Value value) {
             options.timeoutSeconds = ParseSeconds(value, "--timeout");
           }},
      },
      {kUsage, "linux-capture-portal " LINUX_CAPTURE_VERSION});
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
