#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "audio/audio_pipeline_text.h"
#include "fuzz_input.h"
#include "video_hardware/encoder_profiles.h"
#include "video_hardware/hardware_pipeline_text.h"
#include "video_software/raw_pipeline_text.h"

// A launch text is handed to a parser that would make any element of this
// machine, one that writes a file or opens a connection too. So whatever the
// texts of a request are, only known elements may come of them.
namespace {

using linux_capture::CaptureConfig;
using linux_capture::GStreamerHardwareEncoderProfiles;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeConfig;

constexpr std::array<std::string_view, 18> kElements = {
    "appsink",      "audioconvert",   "audiomixer",   "audioresample",
    "glcolorscale", "glcolorconvert", "glupload",     "nvautogpuh264enc",
    "nvh264enc",    "pipewiresrc",    "qsvh264enc",   "queue",
    "tee",          "vah264enc",      "videoconvert", "videorate",
    "videoscale",   "ximagesrc"};

bool IsKnownElement(std::string_view word) {
  return std::find(kElements.begin(), kElements.end(), word) != kElements.end();
}

// Caps, a reference to a pad of a named element, or a property.
bool IsPlainWord(std::string_view word) {
  return word.starts_with("video/x-") || word.starts_with("audio/x-") ||
         (word.size() > 1 && word.back() == '.') ||
         word.find('=') != std::string_view::npos;
}

bool IsSafeCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') ||
         std::string_view(" !=.,-/():").find(c) != std::string_view::npos;
}

void RequireHarmless(const std::string& text, std::size_t sinks) {
  Require(std::all_of(text.begin(), text.end(), IsSafeCharacter),
          "nothing in a text quotes, escapes or ends a line");
  Require(text.back() == ' ', "a text ends with a blank");
  std::istringstream words(text);
  std::size_t found = 0;
  for (std::string word; words >> word;) {
    if (word == "appsink") ++found;
    Require(word == "!" || IsPlainWord(word) || IsKnownElement(word),
            "a text has known elements only");
  }
  Require(found == sinks, "every branch, source and mix has one sink");
}

template <typename Build>
void CheckText(Build build, std::size_t sinks) {
  std::string text;
  try {
    text = build();
  } catch (const std::runtime_error&) {
    return;
  }
  RequireHarmless(text, sinks);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const CaptureConfig config = TakeConfig(input);
  CheckText([&] { return linux_capture::BuildOpenH264VideoPipeline(config); },
            config.branches.size());
  CheckText([&] { return linux_capture::BuildAudioPipeline(config); },
            config.pipeWireTargetObjects.size() + 1);
  for (const auto& profile : GStreamerHardwareEncoderProfiles()) {
    CheckText(
        [&] {
          return linux_capture::BuildHardwareVideoPipeline(config, profile);
        },
        config.branches.size());
  }
  return 0;
}
