#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_SWITCHES_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_SWITCHES_H_

#include <string_view>

namespace linux_capture::standins {

// The stand-ins misbehave when LINUX_CAPTURE_STANDINS says so: a list of words,
// some with a number ("fail-after=20"), separated by blanks. Read afresh at
// each use, so that one process can go through several faults.
[[nodiscard]] bool IsSwitchedOn(std::string_view word);

// The number behind "word=", or `otherwise`.
[[nodiscard]] int SwitchValue(std::string_view word, int otherwise);

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_SWITCHES_H_
