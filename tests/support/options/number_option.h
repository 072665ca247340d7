#ifndef LINUX_CAPTURE_TESTS_SUPPORT_OPTIONS_NUMBER_OPTION_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_OPTIONS_NUMBER_OPTION_H_

#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace linux_capture::options {

// The value of an option that is a number from `low` to `high`.
template <typename Number>
Number ParseNumber(std::string_view text, const std::string& option, Number low,
                   Number high) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || parsed != end || value < low || value > high) {
    throw std::runtime_error(option + " cannot be \"" + std::string(text) +
                             "\"");
  }
  return value;
}

// The width and the height of "--size".
template <typename Number>
std::pair<Number, Number> ParseSize(std::string_view text, Number low,
                                    Number high) {
  const std::size_t cross = text.find('x');
  if (cross == std::string_view::npos) {
    throw std::runtime_error("--size needs WIDTHxHEIGHT, not \"" +
                             std::string(text) + "\"");
  }
  return {ParseNumber(text.substr(0, cross), "--size", low, high),
          ParseNumber(text.substr(cross + 1), "--size", low, high)};
}

}  // namespace linux_capture::options

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_OPTIONS_NUMBER_OPTION_H_
