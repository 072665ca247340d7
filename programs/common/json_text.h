#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_JSON_TEXT_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_JSON_TEXT_H_

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace linux_capture::programs {

// The text as a JSON string with its quotes. Names of windows and applications
// are whatever bytes their owners chose: what is not UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

inline std::string JsonNumber(std::integral auto number) {
  return std::to_string(number);
}

inline std::string JsonBool(bool value) { return value ? "true" : "false"; }

inline std::string JsonStringOrNull(const std::optional<std::string>& text) {
  return text ? JsonString(*text) : "null";
}

template <std::integral Number>
std::string JsonNumberOrNull(const std::optional<Number>& number) {
  return number ? JsonNumber(*number) : "null";
}

// Elements and members are JSON themselves; members keep their order.
std::string JsonArray(const std::vector<std::string>& elements);
std::string JsonObject(
    const std::vector<std::pair<std::string_view, std::string>>& members);

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_JSON_TEXT_H_
