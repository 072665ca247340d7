#include "audio/audio_pipeline_text.h"

#include <cstddef>
#include <cstdint>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

const char* const kToPacketFormat =
    "audioconvert ! audioresample ! "
    "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! ";

// Queues and sinks drop old data instead of holding up PipeWire. A probe only
// meters, so it keeps less than the mix.
std::string AudioSourceText(std::uint32_t targetObject,
                            const std::string& index) {
  return "pipewiresrc target-object=" + std::to_string(targetObject) +
         " do-timestamp=true on-disconnect=2 ! tee name=audioSourceTee" +
         index + " audioSourceTee" + index +
         ". ! queue max-size-buffers=8 leaky=downstream ! " + kToPacketFormat +
         "queue max-size-buffers=8 leaky=downstream ! mix. audioSourceTee" +
         index + ". ! queue max-size-buffers=4 leaky=downstream ! " +
         kToPacketFormat + "appsink name=audioProbeSink" + index +
         " emit-signals=true sync=false max-buffers=2 drop=true ";
}

}  // namespace

std::string BuildAudioPipeline(const CaptureConfig& config) {
  if (config.audioMode != "system" && config.audioMode != "auto" &&
      config.audioMode != "process") {
    throw CodedError(error_code::kInvalidRequest,
                     "BuildAudioPipeline called when Linux audio mode is none");
  }
  std::string text =
      std::string("audiomixer name=mix ! ") + kToPacketFormat +
      "appsink name=audioSink emit-signals=true sync=false max-buffers=8 "
      "drop=true ";
  for (std::size_t i = 0; i < config.pipeWireTargetObjects.size(); ++i) {
    text += AudioSourceText(config.pipeWireTargetObjects[i], std::to_string(i));
  }
  return text;
}

}  // namespace linux_capture
