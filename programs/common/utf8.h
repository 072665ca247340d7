#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_UTF8_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_UTF8_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace linux_capture::programs {

// One step through a text that may be any bytes.
struct Utf8Step {
  std::size_t length = 1;
  // The character, or the byte where these bytes are not well-formed UTF-8.
  std::uint32_t value = 0;
  bool isCharacter = false;
};

// What begins at a place inside the text. Neither overlong forms nor
// surrogates nor anything beyond U+10FFFF count as characters.
Utf8Step Utf8StepAt(std::string_view text, std::size_t at);

// Characters that act on a terminal or on what stands around them instead of
// being seen: controls, line and paragraph ends, marks of writing direction.
bool IsInvisible(std::uint32_t character);

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_UTF8_H_
