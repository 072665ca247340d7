#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_VISIBLE_TEXT_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_VISIBLE_TEXT_H_

#include <string>
#include <string_view>

namespace linux_capture::programs {

// The text as one line that a person can trust: messages quote names and
// arguments, whose owners may have put anything into them. What acts instead of
// being seen is written as \n, \t or \u001b, bytes that are not UTF-8 as \xff.
std::string VisibleText(std::string_view text);

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_VISIBLE_TEXT_H_
