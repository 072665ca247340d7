// Encodes the sound that its host captures. See docs/programs.md.

#include <poll.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "common/frames.h"
#include "common/host_input.h"
#include "common/program_error.h"
#include "common/program_main.h"
#include "common/program_options.h"
#include "opus/opus_encoder.h"

namespace linux_capture::opus {
namespace {

using programs::Bytes;
using programs::kStatusUsage;
using programs::ProgramError;

constexpr const char* kUsage =
    "usage: linux-capture-opus [--bitrate BITS]\n"
    "\n"
    "Encodes sound; for programs. Frames of samples come on standard input, "
    "and\n"
    "frames of packets go to standard output. It ends when its input is\n"
    "closed.\n"
    "\n"
    "  --bitrate BITS     6000 to 510000 bits a second (default: 128000)\n"
    "  --help, --version\n";

constexpr char kSamples = 'a';
constexpr char kPacket = 'p';
constexpr int kLowestBitrate = 6'000;
constexpr int kHighestBitrate = 510'000;

using Timestamp = std::array<std::uint8_t, 8>;

std::int64_t TimestampOf(Bytes bytes) {
  std::uint64_t value = 0;
  for (std::size_t index = 0; index < Timestamp{}.size(); ++index) {
    value = value << 8 | bytes[index];
  }
  return static_cast<std::int64_t>(value);
}

Timestamp BytesOf(std::int64_t timestampUs) {
  Timestamp bytes{};
  auto value = static_cast<std::uint64_t>(timestampUs);
  for (std::size_t index = bytes.size(); index > 0; value >>= 8) {
    bytes[--index] = static_cast<std::uint8_t>(value);
  }
  return bytes;
}

int BitrateOf(const std::string& text) {
  int value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() ||
      value < kLowestBitrate || value > kHighestBitrate) {
    throw ProgramError(kStatusUsage, "--bitrate takes 6000 to 510000");
  }
  return value;
}

// The time, the highest byte first, and samples in the machine's order.
void TakeSamples(const programs::Frame& frame, StereoEncoder& encoder) {
  constexpr std::size_t kTimeSize = Timestamp{}.size();
  constexpr std::size_t kFrameSize = 2 * sizeof(std::int16_t);
  if (frame.kind != kSamples || frame.payload.size() < kTimeSize ||
      (frame.payload.size() - kTimeSize) % kFrameSize != 0) {
    throw ProgramError(kStatusUsage, "the input has a frame of no known kind");
  }
  const Bytes bytes = frame.payload.subspan(kTimeSize);
  std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
  if (!samples.empty()) {
    std::memcpy(samples.data(), bytes.data(), bytes.size());
  }
  encoder.Add(TimestampOf(frame.payload), samples);
}

// Returns false when nobody reads any more.
bool WriteAll(programs::FrameWriter& writer) {
  while (writer.has_waiting()) {
    if (!writer.Flush()) return false;
    if (!writer.has_waiting()) break;
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    poll(&output, 1, -1);
  }
  return true;
}

void Encode(int bitsPerSecond) {
  programs::FrameWriter writer(STDOUT_FILENO);
  StereoEncoder encoder(bitsPerSecond,
                        [&](std::int64_t timestampUs, Bytes packet) {
                          const Timestamp time = BytesOf(timestampUs);
                          std::string text(time.begin(), time.end());
                          text.append(packet.begin(), packet.end());
                          writer.WriteControl(kPacket, text);
                        });
  programs::FrameReader reader;
  std::array<std::uint8_t, programs::kLongestFrame> bytes;
  bool isWanted = true;
  while (isWanted) {
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return;
    reader.Add(
        {bytes.data(), static_cast<std::size_t>(count)},
        [&](const programs::Frame& frame) { TakeSamples(frame, encoder); });
    isWanted = WriteAll(writer);
  }
}

int Main(const std::vector<std::string>& arguments) {
  int bitsPerSecond = 128'000;
  const std::vector<programs::ProgramOption> known{
      {"--bitrate",
       [&](const std::string& text) { bitsPerSecond = BitrateOf(text); }},
  };
  if (!programs::ParseArguments(
          arguments, known,
          {kUsage, "linux-capture-opus " LINUX_CAPTURE_VERSION})) {
    return 0;
  }
  if (programs::HostInput::IsThere()) Encode(bitsPerSecond);
  return 0;
}

}  // namespace
}  // namespace linux_capture::opus

int main(int argc, char** argv) {
  return linux_capture::programs::RunProgram("linux-capture-opus", argc, argv,
                                             linux_capture::opus::Main);
}
