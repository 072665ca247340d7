#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace linux_capture {

// What a source asks PipeWire for: an object by its serial, or a node by its
// id.
struct PipeWireTarget {
  bool isSerial = false;
  std::string value;  // in decimal
};

enum class PipeWireNodeState : std::uint8_t {
  kUnknown,  // not told yet
  kResting,  // suspended or idle, or on the way
  kRunning,
  kFailed,
};

// What a node's pictures are, as PipeWire names it.
struct PipeWireVideoFormat {
  std::string pixels;  // "BGRx"; empty where PipeWire has no name for it
  std::uint32_t width = 0;
  std::uint32_t height = 0;

  bool operator==(const PipeWireVideoFormat&) const = default;
};

// What became of an attempt to open a registry.
enum class PipeWireAnswer : std::uint8_t {
  kAnswered,
  kNotAsked,  // there is no library or no connection to ask over
  kSilent,    // the other end did not answer, or not as PipeWire does
};

// A connection of our own to the daemon that knows its objects by listening to
// its registry. It has no thread: it learns what happened when it is asked.
// Not GStreamer's device provider, which lists the same objects but damages
// the heap in PipeWire 0.3.65.
class PipeWireRegistry {
 public:
  // Null where PipeWire's library is not installed, was not known when this
  // was built, or gives no complete answer within a second; `answer` tells.
  static std::unique_ptr<PipeWireRegistry> Open(UniqueFd connection,
                                                PipeWireAnswer& answer);

  PipeWireRegistry() = default;
  PipeWireRegistry(const PipeWireRegistry&) = delete;
  PipeWireRegistry& operator=(const PipeWireRegistry&) = delete;
  virtual ~PipeWireRegistry() = default;

  // Takes in what has happened, waiting up to `timeoutMs` for it.
  virtual void Update(int timeoutMs) = 0;
  [[nodiscard]] virtual bool Has(const PipeWireTarget& target) const = 0;
  // Whether there is anybody to link a source to its target: every session
  // manager keeps the "default" metadata.
  [[nodiscard]] virtual bool HasSessionManager() const = 0;
  // How many links read from the target.
  [[nodiscard]] virtual std::size_t ReadersOf(
      const PipeWireTarget& target) const = 0;

  // State and format of a target that is a node are known some updates after
  // it was followed first.
  virtual void Follow(const PipeWireTarget& target) = 0;
  [[nodiscard]] virtual PipeWireNodeState StateOf(
      const PipeWireTarget& target) const = 0;
  // The format that the target has agreed on with its readers; none where it
  // has not yet, or gives no pictures.
  [[nodiscard]] virtual std::optional<PipeWireVideoFormat> FormatOf(
      const PipeWireTarget& target) const = 0;

  // Asks the daemon for a sign of life, unless such a question is open.
  virtual void Ask() = 0;
  // Since when a question has been open.
  [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point>
  OpenQuestion() const = 0;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_
