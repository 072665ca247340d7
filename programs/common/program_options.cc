#include "common/program_options.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>

#include "common/program_error.h"

namespace linux_capture::programs {
namespace {

// More than this is another word, not a slip.
constexpr std::size_t kMostSlips = 2;

// How many letters have to be added, left out or changed (Levenshtein).
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = i;
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// The option that was probably meant, or nothing.
std::string_view Nearest(std::string_view name,
                         const std::vector<ProgramOption>& options) {
  std::vector<std::string_view> known{"--help", "--version"};
  for (const ProgramOption& option : options) known.push_back(option.name);
  std::string_view nearest;
  std::size_t best = kMostSlips + 1;
  for (const std::string_view candidate : known) {
    const bool isBeginning = name.size() > 2 && candidate.starts_with(name);
    const std::size_t distance = isBeginning ? 1 : Distance(name, candidate);
    if (distance >= best) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest;
}

// Repeats only the name: a value may be a secret.
[[noreturn]] void RefuseUnknown(std::string_view name,
                                const std::vector<ProgramOption>& options) {
  // Nothing longer was meant to be an option.
  constexpr std::size_t kLongest = 60;
  const bool isShort = name.size() <= kLongest;
  const std::string_view nearest = isShort ? Nearest(name, options) : "";
  throw ProgramError(
      kStatusUsage,
      "unknown option \"" + std::string(name.substr(0, kLongest)) +
          (isShort ? "\"" : "...\"") + "; " +
          (nearest.empty() ? std::string("--help lists all of them")
                           : "is it " + std::string(nearest) + "?"));
}

const ProgramOption& Find(std::string_view name,
                          const std::vector<ProgramOption>& options) {
  const auto found =
      std::find_if(options.begin(), options.end(),
                   [&](const auto& option) { return option.name == name; });
  if (found == options.end()) RefuseUnknown(name, options);
  return *found;
}

}  // namespace

bool ParseArguments(const std::vector<std::string>& arguments,
                    const std::vector<ProgramOption>& options,
                    const ProgramTexts& texts) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--help" || argument == "-h") {
      std::fputs(texts.usage, stdout);
      return false;
    }
    if (argument == "--version") {
      std::puts(texts.version);
      return false;
    }
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    std::optional<std::string> value;
    if (equals != std::string::npos) value = argument.substr(equals + 1);

    const ProgramOption& option = Find(name, options);
    if (const auto* meet = std::get_if<0>(&option.meet)) {
      if (value) throw ProgramError(kStatusUsage, name + " takes no value");
      (*meet)();
      continue;
    }
    if (!value) {
      if (++i == arguments.size()) {
        throw ProgramError(kStatusUsage, name + " needs a value");
      }
      value = arguments[i];
    }
    std::get<1>(option.meet)(*value);
  }
  return true;
}

}  // namespace linux_capture::programs
