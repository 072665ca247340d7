#include "launch_boundary/source_check.h"

#include <chrono>
#include <string>

#include "base/coded_error.h"
#include "base/unique_fd.h"
#include "launch_boundary/pipewire_connection.h"
#include "launch_boundary/pipewire_registry.h"
#include "launch_boundary/portal_connection.h"
#include "launch_boundary/watched_sources.h"

namespace linux_capture {
namespace {

[[noreturn]] void RefuseSilence() {
  throw CodedError(error_code::kSoundServerStalled, "PipeWire does not answer");
}

[[noreturn]] void RefuseConnection(int fd, const std::string& reason) {
  throw CodedError(error_code::kConnectionInvalid,
                   "portal.pipeWireFd " + std::to_string(fd) +
                       " is not a usable connection to PipeWire: " + reason);
}

// Whether the host's descriptor leads to the PipeWire of this environment.
bool IsOfKnownDaemon(int fd) {
  const UniqueFd known = ConnectToPipeWire();
  return known && PeerProcess(known.get()) == PeerProcess(fd);
}

void RequireConnection(const SourceWatch& watch) {
  const int fd = watch.usedFd;
  if (fd >= 0) {
    if (const std::string reason = WhyNoPipeWireConnection(fd);
        !reason.empty()) {
      RefuseConnection(fd, reason);
    }
  }
  if (watch.answer != PipeWireAnswer::kSilent) return;
  if (fd < 0 || IsOfKnownDaemon(fd)) RefuseSilence();
  RefuseConnection(fd, "its other end does not answer");
}

// A source that nobody links would hold up the state change for half a minute
// in PipeWire 0.3.65, and with it the JavaScript thread.
void RequireTarget(PipeWireRegistry& registry, const PipeWireTarget& target) {
  // What has only just appeared may not be announced yet.
  constexpr int kLooks = 5;
  for (int look = 0; look < kLooks; ++look) {
    if (registry.Has(target) && registry.HasSessionManager()) return;
    registry.Update(50);
  }
  if (registry.Has(target)) {
    throw CodedError(error_code::kSessionManagerMissing,
                     "PipeWire target " + target.value +
                         " cannot be linked: PipeWire has no session manager");
  }
  throw CodedError(error_code::kTargetMissing,
                   "PipeWire target " + target.value + " does not exist");
}

// Whether the daemon is there, with all that it knows taken in.
bool Answers(PipeWireRegistry& registry) {
  constexpr auto kLongest = std::chrono::milliseconds(500);
  registry.Ask();
  const auto deadline = std::chrono::steady_clock::now() + kLongest;
  while (registry.OpenQuestion() &&
         std::chrono::steady_clock::now() < deadline) {
    registry.Update(50);
  }
  return !registry.OpenQuestion();
}

}  // namespace

void RequirePipeWireTargets(GstElement* pipeline) {
  SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr) return;
  RequireConnection(*watch);
  if (!watch->registry) return;
  for (WatchedSource& source : watch->sources) {
    RequireTarget(*watch->registry, source.target);
    watch->registry->Follow(source.target);
    source.readersBefore = watch->registry->ReadersOf(source.target);
  }
}

void ThrowIfPipeWireHoldsUp(GstElement* pipeline) {
  SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr) return;
  if (IsHungUp(watch->connection.get())) {
    throw CodedError(error_code::kConnectionInvalid,
                     "the PipeWire connection was lost");
  }
  if (!watch->registry) return;
  PipeWireRegistry& registry = *watch->registry;
  if (!Answers(registry)) RefuseSilence();
  for (const WatchedSource& source : watch->sources) {
    const std::string name = "PipeWire target " + source.target.value;
    if (!registry.Has(source.target)) {
      throw CodedError(error_code::kTargetMissing, name + " went away");
    }
    if (registry.ReadersOf(source.target) <= source.readersBefore) {
      throw CodedError(error_code::kSessionManagerStalled,
                       name +
                           " was not linked: PipeWire's session manager "
                           "does not answer");
    }
    if (registry.StateOf(source.target) == PipeWireNodeState::kResting) {
      throw CodedError(error_code::kSourcePaused,
                       name + " does not start: it is paused");
    }
  }
}

}  // namespace linux_capture
