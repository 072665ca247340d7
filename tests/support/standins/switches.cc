#include "switches.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace linux_capture::standins {
namespace {

// Calls `visit` with each word until one visit returns true.
template <typename Visit>
bool AnyWord(Visit visit) {
  const char* const text = std::getenv("LINUX_CAPTURE_STANDINS");
  std::string_view rest(text != nullptr ? text : "");
  while (!rest.empty()) {
    const std::string_view word = rest.substr(0, rest.find(' '));
    if (visit(word)) return true;
    rest.remove_prefix(std::min(word.size() + 1, rest.size()));
  }
  return false;
}

}  // namespace

bool IsSwitchedOn(std::string_view word) {
  return AnyWord([word](std::string_view each) { return each == word; });
}

int SwitchValue(std::string_view word, int otherwise) {
  int value = otherwise;
  AnyWord([word, &value](std::string_view each) {
    if (!each.starts_with(word) || each.size() <= word.size() ||
        each[word.size()] != '=') {
      return false;
    }
    each.remove_prefix(word.size() + 1);
    std::from_chars(each.data(), each.data() + each.size(), value);
    return true;
  });
  return value;
}

}  // namespace linux_capture::standins
