#include "common/utf8.h"

#include <array>

namespace linux_capture::programs {
namespace {

std::uint32_t ByteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

std::size_t SequenceLength(std::string_view text, std::size_t at) {
  const std::uint32_t first = ByteAt(text, at);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  std::uint32_t low = 0x80;
  std::uint32_t high = 0xbf;
  if (first == 0xe0) low = 0xa0;
  if (first == 0xed) high = 0x9f;
  if (first == 0xf0) low = 0x90;
  if (first == 0xf4) high = 0x8f;
  const std::uint32_t second = ByteAt(text, at + 1);
  if (second < low || second > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((ByteAt(text, at + i) & 0xc0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

Utf8Step Utf8StepAt(std::string_view text, std::size_t at) {
  const std::uint32_t first = ByteAt(text, at);
  const std::size_t length = SequenceLength(text, at);
  if (length == 0) return {1, first, false};
  constexpr std::array<std::uint32_t, 5> kFirstMasks{0, 0x7f, 0x1f, 0x0f, 0x07};
  std::uint32_t value = first & kFirstMasks.at(length);
  for (std::size_t i = 1; i < length; ++i) {
    value = (value << 6) | (ByteAt(text, at + i) & 0x3f);
  }
  return {length, value, true};
}

bool IsInvisible(std::uint32_t character) {
  return character < 0x20 || (character >= 0x7f && character < 0xa0) ||
         character == 0x061c || character == 0x200e || character == 0x200f ||
         (character >= 0x2028 && character <= 0x202e) ||
         (character >= 0x2066 && character <= 0x2069);
}

}  // namespace linux_capture::programs
