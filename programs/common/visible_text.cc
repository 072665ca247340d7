#include "common/visible_text.h"

#include <cstddef>

#include "common/hexadecimal.h"
#include "common/utf8.h"

namespace linux_capture::programs {
namespace {

std::string EscapeOf(const Utf8Step& step) {
  if (!step.isCharacter) return "\\x" + Hexadecimal(step.value, 2);
  if (step.value == '\n') return "\\n";
  if (step.value == '\t') return "\\t";
  return "\\u" + Hexadecimal(step.value, 4);
}

}  // namespace

std::string VisibleText(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = Utf8StepAt(text, at);
    if (!step.isCharacter || IsInvisible(step.value)) {
      result += EscapeOf(step);
    } else {
      result += text.substr(at, step.length);
    }
    at += step.length;
  }
  return result;
}

}  // namespace linux_capture::programs
