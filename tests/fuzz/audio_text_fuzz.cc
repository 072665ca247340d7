#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_pipeline_text.h"
#include "fuzz_input.h"

namespace {

using linux_capture::CaptureConfig;
using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::MatchesPattern;
using linux_capture::fuzz::Require;
using linux_capture::fuzz::TakeConfig;
using Numbers = std::vector<std::int64_t>;

constexpr const char* kFormat =
    "audioconvert ! audioresample ! "
    "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! ";

std::string SourcePattern() {
  return std::string(
             "pipewiresrc target-object=# do-timestamp=true "
             "on-disconnect=2 ! tee name=audioSourceTee# "
             "audioSourceTee#. ! queue max-size-buffers=8 "
             "leaky=downstream ! ") +
         kFormat +
         "queue max-size-buffers=8 leaky=downstream ! mix. "
         "audioSourceTee#. ! queue max-size-buffers=4 leaky=downstream ! " +
         kFormat +
         "appsink name=audioProbeSink# emit-signals=true sync=false "
         "max-buffers=2 drop=true ";
}

bool IsUsable(const CaptureConfig& config) {
  return config.audioMode == "system" || config.audioMode == "auto" ||
         config.audioMode == "process";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const CaptureConfig config = TakeConfig(input);
  std::string text;
  try {
    text = linux_capture::BuildAudioPipeline(config);
  } catch (const std::runtime_error&) {
    Require(!IsUsable(config), "a usable configuration has a text");
    return 0;
  }
  Require(IsUsable(config), "only a usable configuration has a text");
  std::string pattern = std::string("audiomixer name=mix ! ") + kFormat +
                        "appsink name=audioSink emit-signals=true sync=false "
                        "max-buffers=8 drop=true ";
  Numbers expected;
  std::int64_t index = 0;
  for (const std::uint32_t target : config.pipeWireTargetObjects) {
    pattern += SourcePattern();
    expected.insert(expected.end(), {target, index, index, index, index});
    ++index;
  }
  Numbers found;
  Require(MatchesPattern(text, pattern, found),
          "the text is its fixed words and numbers");
  Require(found == expected, "the numbers are those of the configuration");
  return 0;
}
