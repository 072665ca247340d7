#include "shot/shot_options.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

#include "common/program_error.h"
#include "common/program_options.h"

namespace linux_capture::shot {
namespace {

using programs::kStatusUsage;
using programs::ProgramError;

constexpr const char* kUsage =
    "usage: linux-capture-shot SOURCE [--hide-pointer]\n"
    "\n"
    "Writes one picture of a source as PNG to standard output.\n"
    "\n"
    "  --window XID              a window of the X display\n"
    "  --rectangle X,Y,WxH       a part of its screen\n"
    "  --pipewire NODE --fd FD   a stream of PipeWire, over the connection\n"
    "                            that this descriptor is\n"
    "  --hide-pointer            without the pointer, from the X display\n"
    "  --help, --version\n"
    "\n"
    "The upper left corner of the screen:\n"
    "  linux-capture-shot --rectangle 0,0,320x200 > corner.png\n";

[[noreturn]] void Refuse(std::string_view option, const std::string& text,
                         std::string_view expected) {
  throw ProgramError(kStatusUsage, std::string(option) + " takes " +
                                       std::string(expected) + ", not \"" +
                                       text + "\"");
}

// Reads a number off the beginning of the text.
template <typename Number>
bool TakeNumber(std::string_view& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{}) return false;
  text.remove_prefix(static_cast<std::size_t>(parsed - text.data()));
  return true;
}

template <typename Number>
Number ParseNumber(std::string_view option, const std::string& text,
                   Number least) {
  std::string_view left = text;
  Number number{};
  if (!TakeNumber(left, number) || !left.empty() || number < least) {
    Refuse(option, text, "a number");
  }
  return number;
}

void ParseRectangle(const std::string& text, CaptureConfig& source) {
  struct Piece {
    std::int32_t* number;
    std::string_view separator;
  };
  const std::array<Piece, 4> pieces{{{&source.x, ","},
                                     {&source.y, ","},
                                     {&source.sourceWidth, "x"},
                                     {&source.sourceHeight, ""}}};
  std::string_view left = text;
  bool isRight = true;
  for (const Piece& piece : pieces) {
    isRight = isRight && TakeNumber(left, *piece.number) &&
              left.starts_with(piece.separator);
    if (isRight) left.remove_prefix(piece.separator.size());
  }
  if (!isRight || !left.empty() || source.sourceWidth < 1 ||
      source.sourceHeight < 1) {
    Refuse("--rectangle", text, "a place and a size such as 10,20,640x480");
  }
}

void Choose(CaptureConfig& source, const char* backend, const char* kind) {
  if (!source.kind.empty()) {
    throw ProgramError(kStatusUsage, "there can be only one source");
  }
  source.backend = backend;
  source.kind = kind;
}

}  // namespace

bool ParseShotOptions(const std::vector<std::string>& arguments,
                      ShotOptions& options) {
  using Value = const std::string&;
  CaptureConfig& source = options.source;
  source.kind.clear();
  const std::vector<programs::ProgramOption> known{
      {"--window",
       [&](Value value) {
         Choose(source, "x11", "window");
         source.windowHandle = ParseNumber<std::uint64_t>("--window", value, 1);
       }},
      {"--rectangle",
       [&](Value value) {
         Choose(source, "x11", "monitor");
         ParseRectangle(value, source);
       }},
      {"--pipewire",
       [&](Value value) {
         Choose(source, "portal", "monitor");
         source.pipeWireNodeId =
             ParseNumber<std::uint32_t>("--pipewire", value, 1);
       }},
      {"--fd",
       [&](Value value) {
         source.pipeWireFd = ParseNumber<std::int32_t>("--fd", value, 0);
       }},
      {"--hide-pointer", [&] { options.isPointerShown = false; }},
  };
  if (!programs::ParseArguments(
          arguments, known,
          {kUsage, "linux-capture-shot " LINUX_CAPTURE_VERSION})) {
    return false;
  }
  if (source.kind.empty()) {
    throw ProgramError(kStatusUsage,
                       "a source is missing: --window, --rectangle or "
                       "--pipewire");
  }
  if ((source.backend == "portal") != (source.pipeWireFd >= 0)) {
    throw ProgramError(kStatusUsage, "--pipewire and --fd go together");
  }
  if (source.backend == "portal" && !options.isPointerShown) {
    throw ProgramError(kStatusUsage,
                       "--hide-pointer is for the X display: who granted the "
                       "stream has chosen");
  }
  return true;
}

}  // namespace linux_capture::shot
