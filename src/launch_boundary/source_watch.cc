#include "launch_boundary/source_watch.h"

#include <fcntl.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/coded_error.h"
#include "base/element_error.h"
#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pipeline_elements.h"
#include "base/unique_fd.h"
#include "launch_boundary/pipewire_connection.h"
#include "launch_boundary/pipewire_registry.h"

namespace linux_capture {
namespace {

constexpr const char* kWatchKey = "linux-capture-source-watch";

struct WatchedSource {
  PipeWireTarget target;
  bool isLinked = false;     // at the last look
  bool wasUnlinked = false;  // since the last look
};

struct SourceWatch {
  UniqueFd connection;
  bool isConnectionLost = false;
  std::unique_ptr<PipeWireRegistry> registry;  // null when there is none
  std::vector<WatchedSource> sources;          // those not lost yet
};

SourceWatch* WatchOf(GstElement* pipeline) {
  return ObjectData<SourceWatch>(pipeline, kWatchKey);
}

std::string TextProperty(GstElement* element, const char* name) {
  gchar* raw = nullptr;
  g_object_get(element, name, &raw, nullptr);
  const GCharPtr text(raw);
  return text ? std::string(text.get()) : std::string();
}

// `target-object` first: where both are set, that is what PipeWire does.
PipeWireTarget TargetOf(GstElement* source) {
  std::string serial = TextProperty(source, "target-object");
  if (!serial.empty()) return {true, std::move(serial)};
  return {false, TextProperty(source, "path")};
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

// Nothing reads from a source any more though it is still there: the session
// manager, which owns the links, has ended or decided so. A source that goes
// away loses its links a moment earlier, so one look more is taken first.
bool TakeUnlinked(const PipeWireRegistry& registry, WatchedSource& source) {
  const bool isLinked = registry.IsRead(source.target);
  const bool isReported = source.wasUnlinked && !isLinked;
  source.wasUnlinked = source.isLinked && !isLinked;
  source.isLinked = isLinked;
  return isReported;
}

struct SourceLoss {
  std::string text;
  const char* code;
};

// What the pipeline's sources have lost since the last look.
std::vector<SourceLoss> TakeLosses(SourceWatch& watch) {
  std::vector<SourceLoss> losses;
  if (!watch.isConnectionLost && IsHungUp(watch.connection.get())) {
    watch.isConnectionLost = true;
    // All the sources went with it: that is one loss.
    watch.registry.reset();
    losses.push_back(
        {"the PipeWire connection was lost", error_code::kConnectionLost});
  }
  if (!watch.registry) return losses;
  watch.registry->Update(0);
  std::erase_if(watch.sources, [&](WatchedSource& source) {
    const std::string name = "PipeWire target " + source.target.value;
    if (!watch.registry->Has(source.target)) {
      losses.push_back({name + " went away", error_code::kSourceLost});
      return true;
    }
    if (TakeUnlinked(*watch.registry, source)) {
      losses.push_back({name + " was disconnected", error_code::kSourceLost});
    }
    return false;
  });
  return losses;
}

}  // namespace

void WatchPipeWireSources(GstElement* pipeline) {
  auto watch = std::make_unique<SourceWatch>();
  gint usedFd = -1;
  ForEachElementOf(pipeline, "pipewiresrc", [&](GstElement* source) {
    watch->sources.push_back({TargetOf(source)});
    g_object_get(source, "fd", &usedFd, nullptr);
  });
  if (watch->sources.empty()) return;

  // The sources' own connection cannot be shared, so there is another one,
  // which must be to the same daemon to know the same objects.
  UniqueFd own = ConnectToPipeWire();
  if (own && (usedFd < 0 || PeerProcess(usedFd) == PeerProcess(own.get()))) {
    UniqueFd listening(fcntl(own.get(), F_DUPFD_CLOEXEC, 0));
    watch->registry = PipeWireRegistry::Open(std::move(listening));
  }
  // A duplicate, because the host may close its own at any time.
  watch->connection = usedFd >= 0 ? UniqueFd(fcntl(usedFd, F_DUPFD_CLOEXEC, 0))
                                  : std::move(own);
  SetObjectData(pipeline, kWatchKey, std::move(watch));
}

void RequirePipeWireTargets(GstElement* pipeline) {
  const SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr || !watch->registry) return;
  for (const WatchedSource& source : watch->sources) {
    RequireTarget(*watch->registry, source.target);
  }
}

void PostLostSources(GstElement* pipeline) {
  if (pipeline == nullptr) return;
  SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr) return;
  for (const SourceLoss& loss : TakeLosses(*watch)) {
    PostElementError(pipeline, GST_RESOURCE_ERROR_NOT_FOUND, loss.text,
                     loss.code);
  }
}

}  // namespace linux_capture
