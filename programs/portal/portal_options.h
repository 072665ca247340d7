#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_OPTIONS_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace linux_capture::portal {

// The portal's own bits.
inline constexpr std::uint32_t kTypeMonitor = 1;
inline constexpr std::uint32_t kTypeWindow = 2;
inline constexpr std::uint32_t kCursorHidden = 1;
inline constexpr std::uint32_t kCursorEmbedded = 2;
inline constexpr std::uint32_t kCursorMetadata = 4;

struct NamedBit {
  std::string_view name;
  std::uint32_t bit;
};
inline constexpr NamedBit kTypeNames[] = {{"monitor", kTypeMonitor},
                                          {"window", kTypeWindow}};
inline constexpr NamedBit kCursorNames[] = {{"hidden", kCursorHidden},
                                            {"embedded", kCursorEmbedded},
                                            {"metadata", kCursorMetadata}};
inline constexpr NamedBit kPersistNames[] = {
    {"none", 0}, {"session", 1}, {"permanent", 2}};

struct PortalOptions {
  // Nothing means: whatever of both the portal offers.
  std::optional<std::uint32_t> types;
  // Nothing means: in the picture where the portal offers it.
  std::optional<std::uint32_t> cursor;
  std::uint32_t persist = 0;
  // Nobody else must see the token, and arguments are everybody's to read: it
  // is the first line of standard input.
  bool isRestoreTokenGiven = false;
  // Nothing means: as long as the user takes.
  std::optional<std::uint32_t> timeoutSeconds;
};

// Returns false when --help or --version was asked for and is answered. Throws
// a ProgramError for anything it does not know.
bool ParsePortalOptions(const std::vector<std::string>& arguments,
                        PortalOptions& options);

// The names of the bits, for example "hidden, embedded", or "none".
std::string NamesOf(std::span<const NamedBit> known, std::uint32_t bits);

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_OPTIONS_H_
