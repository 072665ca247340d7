#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/frames.h"
#include "common/program_error.h"
#include "fuzz_input.h"
#include "transport/description.h"

// What a host writes to the programs of a publication: frames, and the lines in
// them, which are made of what a server says.
namespace {

using linux_capture::fuzz::FuzzInput;
using linux_capture::fuzz::Require;
using linux_capture::programs::Bytes;
using linux_capture::programs::Frame;
using linux_capture::programs::FrameReader;
using linux_capture::programs::ProgramError;

using Frames = std::vector<std::pair<char, std::string>>;

struct Result {
  Frames frames;
  bool isRefused = false;

  bool operator==(const Result& other) const = default;
};

std::string TextOf(Bytes bytes) { return {bytes.begin(), bytes.end()}; }

Result Read(Bytes bytes, std::size_t pieceSize) {
  Result result;
  FrameReader reader;
  try {
    while (!bytes.empty()) {
      const std::size_t size = std::min(pieceSize, bytes.size());
      reader.Add(bytes.first(size), [&](const Frame& frame) {
        result.frames.emplace_back(frame.kind, TextOf(frame.payload));
      });
      bytes = bytes.subspan(size);
    }
  } catch (const ProgramError&) {
    result.isRefused = true;
  }
  return result;
}

std::string Written(const Frames& frames) {
  std::string bytes;
  for (const auto& [kind, payload] : frames) {
    const std::size_t length = payload.size() + 1;
    for (const unsigned int shift : {24U, 16U, 8U, 0U}) {
      bytes += static_cast<char>(length >> shift & 0xFFU);
    }
    bytes += kind;
    bytes += payload;
  }
  return bytes;
}

bool IsWord(std::string_view text) {
  return !text.empty() && text.find_first_of(" \n") == std::string_view::npos;
}

void CheckServer(const linux_capture::transport::IceServer& server) {
  constexpr std::array<std::string_view, 3> kKinds = {"stun", "turn",
                                                      "turn-tcp"};
  Require(std::find(kKinds.begin(), kKinds.end(), server.kind) != kKinds.end(),
          "a server is of a known kind");
  Require(IsWord(server.address) && server.port != 0,
          "a server has an address");
  Require(
      server.kind == "stun" || (IsWord(server.user) && IsWord(server.password)),
      "a server that passes packets on is told who asks");
}

void CheckOpenRequest(const std::string& text) {
  for (const auto& server :
       linux_capture::transport::ParseOpenRequest(text).servers) {
    CheckServer(server);
  }
}

void CheckRemote(const std::string& text) {
  const auto remote = linux_capture::transport::ParseRemoteDescription(text);
  Require(IsWord(remote.user) && IsWord(remote.password) &&
              IsWord(remote.digestName) && IsWord(remote.digest),
          "a description is whole");
  for (const auto& relay : remote.relays) CheckServer(relay);
  for (const std::string& candidate : remote.candidates) {
    Require(candidate.starts_with("candidate:") &&
                candidate.find('\n') == std::string::npos,
            "a candidate is one line");
  }
}

template <typename Check>
void MayRefuse(Check check, const std::string& text) {
  try {
    check(text);
  } catch (const ProgramError&) {
    // In one line, which the tests of the programs look at.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzInput input(data, size);
  const std::size_t pieceSize = std::size_t{input.Take<std::uint8_t>()} + 1;
  const auto rest = input.TakeRest();
  const std::string bytes(rest.begin(), rest.end());
  const Result whole = Read(rest, std::max<std::size_t>(rest.size(), 1));
  Require(whole == Read(rest, pieceSize),
          "frames are the same, whatever pieces they come in");
  Require(bytes.starts_with(Written(whole.frames)),
          "frames are what was written");
  for (const auto& [kind, payload] : whole.frames) {
    MayRefuse(CheckOpenRequest, payload);
    MayRefuse(CheckRemote, payload);
  }
  // Without frames around them lines are found sooner.
  MayRefuse(CheckOpenRequest, bytes);
  MayRefuse(CheckRemote, bytes);
  return 0;
}
