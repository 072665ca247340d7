#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_HEXADECIMAL_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_HEXADECIMAL_H_

#include <cstdint>
#include <string>

namespace linux_capture::programs {

// The last `digits` digits, with zeros in front.
inline std::string Hexadecimal(std::uint32_t number, int digits) {
  std::string text;
  for (int place = digits - 1; place >= 0; --place) {
    text += "0123456789abcdef"[(number >> (4 * place)) & 0xf];
  }
  return text;
}

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_HEXADECIMAL_H_
