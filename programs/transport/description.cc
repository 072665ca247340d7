#include "transport/description.h"

#include <algorithm>
#include <charconv>
#include <functional>

#include "common/program_error.h"

namespace linux_capture::transport {
namespace {

using programs::kStatusUsage;
using programs::ProgramError;

using Words = std::vector<std::string>;

Words SplitAt(std::string_view text, char separator) {
  Words parts;
  while (!text.empty()) {
    const std::size_t end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return parts;
}

[[noreturn]] void RefuseLine(const std::string& key) {
  throw ProgramError(kStatusUsage, "the input has a line \"" + key +
                                       "\" that cannot be understood");
}

void ForEachLine(
    std::string_view text,
    const std::function<bool(const Words&, const std::string&)>& take) {
  for (const std::string& line : SplitAt(text, '\n')) {
    const Words words = SplitAt(line, ' ');
    if (words.empty() || !take(words, line)) {
      RefuseLine(words.empty() ? "" : words.front());
    }
  }
}

// As many words as that, none of them empty.
bool HasWords(const Words& words, std::size_t count) {
  return words.size() == count &&
         std::none_of(words.begin(), words.end(),
                      [](const std::string& word) { return word.empty(); });
}

std::uint16_t PortOf(const std::string& text) {
  std::uint16_t port = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port == 0) {
    RefuseLine("server");
  }
  return port;
}

bool IsRelay(const Words& words) {
  return (words[0] == "turn" || words[0] == "turn-tcp") && HasWords(words, 5);
}

IceServer RelayOf(const Words& words) {
  return {words[0], words[1], PortOf(words[2]), words[3], words[4]};
}

}  // namespace

OpenRequest ParseOpenRequest(std::string_view text) {
  OpenRequest request;
  ForEachLine(text, [&](const Words& words, const std::string&) {
    if (words[0] == "loopback" && words.size() == 1) {
      request.isLoopbackOffered = true;
    } else if (words[0] == "stun" && HasWords(words, 3)) {
      request.servers.push_back({words[0], words[1], PortOf(words[2]), "", ""});
    } else if (IsRelay(words)) {
      request.servers.push_back(RelayOf(words));
    } else {
      return false;
    }
    return true;
  });
  return request;
}

RemoteDescription ParseRemoteDescription(std::string_view text) {
  RemoteDescription remote;
  ForEachLine(text, [&](const Words& words, const std::string& line) {
    if (words[0] == "user" && HasWords(words, 2)) {
      remote.user = words[1];
    } else if (words[0] == "password" && HasWords(words, 2)) {
      remote.password = words[1];
    } else if (words[0] == "fingerprint" && HasWords(words, 3)) {
      remote.digestName = words[1];
      remote.digest = words[2];
    } else if (words[0] == "setup" && HasWords(words, 2)) {
      remote.isActive = words[1] == "active";
    } else if (IsRelay(words)) {
      remote.relays.push_back(RelayOf(words));
    } else if (words[0].starts_with("candidate:")) {
      remote.candidates.push_back(line);
    } else {
      return false;
    }
    return true;
  });
  if (remote.user.empty() || remote.password.empty() || remote.digest.empty()) {
    throw ProgramError(kStatusUsage, "the remote description is not whole");
  }
  return remote;
}

}  // namespace linux_capture::transport
