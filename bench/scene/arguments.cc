#include "arguments.h"

#include <charconv>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "barcode.h"

namespace linux_capture::bench {
namespace {

constexpr int kMinSide = 64;
constexpr int kMaxSide = 32767;

std::int64_t ParseNumber(std::string_view text, const std::string& name,
                         std::int64_t low, std::int64_t high) {
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || parsed != end || value < low || value > high) {
    throw std::runtime_error(name + " cannot be \"" + std::string(text) + "\"");
  }
  return value;
}

}  // namespace

Arguments::Arguments(int argc, char** argv) {
  const std::vector<std::string> all(argv + (argc > 0 ? 1 : 0), argv + argc);
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].rfind("--", 0) != 0) {
      rest_.push_back(all[i]);
      continue;
    }
    if (i + 1 == all.size()) {
      throw std::runtime_error(all[i] + " needs a value");
    }
    options_[all[i]] = all[i + 1];
    ++i;
  }
}

std::string Arguments::Text(const std::string& name) const {
  const auto found = options_.find(name);
  if (found == options_.end()) {
    throw std::runtime_error(name + " is missing");
  }
  return found->second;
}

std::int64_t Arguments::Number(const std::string& name, std::int64_t low,
                               std::int64_t high) const {
  return ParseNumber(Text(name), name, low, high);
}

Size Arguments::SizeOf(const std::string& name) const {
  const std::string text = Text(name);
  const std::size_t cross = text.find('x');
  if (cross == std::string::npos) {
    throw std::runtime_error(name + " needs WIDTHxHEIGHT");
  }
  const std::string_view view(text);
  const auto side = [&name](std::string_view part) {
    return static_cast<int>(ParseNumber(part, name, kMinSide, kMaxSide));
  };
  return {side(view.substr(0, cross)), side(view.substr(cross + 1))};
}

std::vector<std::uint32_t> Arguments::PictureNumbers() const {
  std::vector<std::uint32_t> numbers;
  numbers.reserve(rest_.size());
  for (const std::string& text : rest_) {
    numbers.push_back(static_cast<std::uint32_t>(
        ParseNumber(text, "a picture's number", 0, kNumberLimit - 1)));
  }
  return numbers;
}

}  // namespace linux_capture::bench
