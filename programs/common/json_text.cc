#include "common/json_text.h"

#include <cstddef>

#include "common/hexadecimal.h"
#include "common/utf8.h"

namespace linux_capture::programs {
namespace {

constexpr std::string_view kReplacement = "\xef\xbf\xbd";

// What JSON reserves, and what would act on the terminal of somebody who looks
// at the line.
std::string EscapeOf(std::uint32_t character) {
  switch (character) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    default:
      return IsInvisible(character) ? "\\u" + Hexadecimal(character, 4) : "";
  }
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string result = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = Utf8StepAt(text, at);
    if (!step.isCharacter) {
      result += kReplacement;
    } else if (const std::string escape = EscapeOf(step.value);
               !escape.empty()) {
      result += escape;
    } else {
      result += text.substr(at, step.length);
    }
    at += step.length;
  }
  return result + '"';
}

std::string JsonArray(const std::vector<std::string>& elements) {
  std::string result = "[";
  for (const std::string& element : elements) {
    if (result.size() > 1) result += ',';
    result += element;
  }
  return result + ']';
}

std::string JsonObject(
    const std::vector<std::pair<std::string_view, std::string>>& members) {
  std::string result = "{";
  for (const auto& [key, value] : members) {
    if (result.size() > 1) result += ',';
    result += JsonString(key) + ':' + value;
  }
  return result + '}';
}

}  // namespace linux_capture::programs
