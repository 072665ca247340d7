#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_

#include <memory>
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

// A connection of our own to the daemon that knows its objects by listening to
// its registry. It has no thread: it learns what happened when it is asked.
// Not GStreamer's device provider, which lists the same objects but damages
// the heap in PipeWire 0.3.65.
class PipeWireRegistry {
 public:
  // Null where PipeWire's library is not installed, was not known when this
  // was built, or gives no complete answer within half a second.
  static std::unique_ptr<PipeWireRegistry> Open(UniqueFd connection);

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
  // Whether anything reads from the target.
  [[nodiscard]] virtual bool IsRead(const PipeWireTarget& target) const = 0;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_REGISTRY_H_
