#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_OPTIONS_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_OPTIONS_H_

#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace linux_capture::programs {

// One option of a program, and what is done when it is met: with its value,
// where it takes one.
struct ProgramOption {
  std::string_view name;
  std::variant<std::function<void()>, std::function<void(const std::string&)>>
      meet;
};

// The answers to --help and --version.
struct ProgramTexts {
  const char* usage;
  const char* version;
};

// Goes through the arguments; values stand behind their options or, with "=",
// inside the same argument. Returns false when --help or --version was asked
// for, which has been answered then and makes the rest meaningless. Throws a
// ProgramError for anything that is not among the options.
bool ParseArguments(const std::vector<std::string>& arguments,
                    const std::vector<ProgramOption>& options,
                    const ProgramTexts& texts);

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_OPTIONS_H_
