#include "common/json_text.h"

#include <cstddef>

namespace linux_capture::programs {
namespace {

constexpr std::string_view kReplacement = "\xef\xbf\xbd";

unsigned int ByteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

// Length of the well-formed UTF-8 sequence at a place, or 0: neither overlong
// forms nor surrogates nor anything beyond U+10FFFF count as one.
std::size_t SequenceLength(std::string_view text, std::size_t at) {
  const unsigned int first = ByteAt(text, at);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  unsigned int low = 0x80;
  unsigned int high = 0xbf;
  if (first == 0xe0) low = 0xa0;
  if (first == 0xed) high = 0x9f;
  if (first == 0xf0) low = 0x90;
  if (first == 0xf4) high = 0x8f;
  const unsigned int second = ByteAt(text, at + 1);
  if (second < low || second > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((ByteAt(text, at + i) & 0xc0) != 0x80) return 0;
  }
  return length;
}

void AppendEscaped(unsigned int byte, std::string& result) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  switch (byte) {
    case '"':
      result += "\\\"";
      break;
    case '\\':
      result += "\\\\";
      break;
    case '\n':
      result += "\\n";
      break;
    case '\t':
      result += "\\t";
      break;
    default:
      if (byte < 0x20 || byte == 0x7f) {
        result += "\\u00";
        result += kDigits[byte >> 4];
        result += kDigits[byte & 0xf];
      } else {
        result += static_cast<char>(byte);
      }
  }
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string result = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = SequenceLength(text, at);
    if (length == 1) {
      AppendEscaped(ByteAt(text, at), result);
    } else if (length == 0) {
      result += kReplacement;
    } else {
      result += text.substr(at, length);
    }
    at += length == 0 ? 1 : length;
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
