#ifndef LINUX_CAPTURE_BASE_SWITCH_H_
#define LINUX_CAPTURE_BASE_SWITCH_H_

#include <cstdlib>
#include <string_view>

namespace linux_capture {

// Whether the environment has "off" under the name.
inline bool IsSwitchedOff(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && std::string_view(value) == "off";
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_SWITCH_H_
