#include "launch_boundary/source_watch.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
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
#include "launch_boundary/format_drift.h"
#include "launch_boundary/format_watch.h"
#include "launch_boundary/held_ending.h"
#include "launch_boundary/pipewire_connection.h"
#include "launch_boundary/pipewire_registry.h"
#include "launch_boundary/portal_connection.h"
#include "launch_boundary/watched_sources.h"

namespace linux_capture {
namespace {

constexpr const char* kWatchKey = "linux-capture-source-watch";

constexpr const char* kFormatText =
    "the source changed the format of its pictures";

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

// Nothing reads from a source any more though it is still there: the session
// manager, which owns the links, has ended or decided so. A source that goes
// away loses its links a moment earlier, so one look more is taken first.
bool TakeUnlinked(const PipeWireRegistry& registry, WatchedSource& source) {
  const bool isLinked = registry.ReadersOf(source.target) > 0;
  const bool isReported = source.wasUnlinked && !isLinked;
  source.wasUnlinked = source.isLinked && !isLinked;
  source.isLinked = isLinked;
  return isReported;
}

struct SourceLoss {
  std::string text;
  const char* code;
};

std::string Described(const PipeWireVideoFormat& format) {
  return (format.pixels.empty() ? "" : format.pixels + " ") +
         std::to_string(format.width) + "x" + std::to_string(format.height);
}

bool ClaimFormatChange(const WatchedSource& source) {
  const GstElementPtr element(gst_pad_get_parent_element(source.pad.get()));
  return element && ClaimFormatReport(element.get());
}

void TakeFormatChange(const PipeWireRegistry& registry, WatchedSource& source,
                      std::vector<SourceLoss>& losses) {
  const auto read = FormatOfPad(source.pad.get());
  const auto given = registry.FormatOf(source.target);
  const auto now = std::chrono::steady_clock::now();
  if (!source.drift.Look(read, given, now) || !ClaimFormatChange(source)) {
    return;
  }
  losses.push_back(
      {kFormatText + (" from " + Described(*read)) + " to " + Described(*given),
       error_code::kFormatChanged});
}

// Whether the daemon owes an answer for so long that it must stand still. What
// it has not told yet is not known either.
bool IsUnanswered(SourceWatch& watch) {
  constexpr auto kStall = std::chrono::seconds(3);
  watch.registry->Ask();
  const auto askedAt = watch.registry->OpenQuestion();
  return askedAt && std::chrono::steady_clock::now() - *askedAt > kStall;
}

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
  if (IsUnanswered(watch)) {
    if (!std::exchange(watch.isStallReported, true)) {
      losses.push_back(
          {"PipeWire does not answer", error_code::kSoundServerStalled});
    }
    return losses;
  }
  watch.isStallReported = false;
  std::erase_if(watch.sources, [&](WatchedSource& source) {
    const std::string name = "PipeWire target " + source.target.value;
    if (!watch.registry->Has(source.target)) {
      losses.push_back({name + " went away", error_code::kSourceLost});
      return true;
    }
    const bool isConsequence = watch.ending && watch.ending->isFormatRefused();
    if (TakeUnlinked(*watch.registry, source) && !isConsequence) {
      losses.push_back({name + " was disconnected", error_code::kSourceLost});
    }
    if (source.pad) TakeFormatChange(*watch.registry, source, losses);
    return false;
  });
  return losses;
}

bool IsFormatChange(const SourceLoss& loss) {
  return loss.code == error_code::kFormatChanged;
}

// What an end was that began with a lost format. The node may tell of another
// one for as long as a change takes; where nothing tells of any, and the source
// has not refused one either, it is an end like any other.
void TakeEnding(GstElement* pipeline, SourceWatch& watch,
                std::vector<SourceLoss>& losses) {
  const auto since = watch.ending ? watch.ending->heldSince() : std::nullopt;
  if (!since) return;
  const auto age = std::chrono::steady_clock::now() - *since;
  if (losses.empty() && watch.registry && age < FormatDrift::kLongest) return;
  const bool isUntold = losses.empty() && watch.ending->isFormatRefused() &&
                        !watch.sources.empty();
  if (!isUntold && std::ranges::none_of(losses, IsFormatChange)) {
    watch.ending->Release(pipeline);
    return;
  }
  watch.ending->Drop();
  if (isUntold && ClaimFormatChange(watch.sources.front())) {
    losses.push_back({kFormatText, error_code::kFormatChanged});
  }
}

}  // namespace

SourceWatch* WatchOf(GstElement* pipeline) {
  return ObjectData<SourceWatch>(pipeline, kWatchKey);
}

void WatchPipeWireSources(GstElement* pipeline) {
  auto watch = std::make_unique<SourceWatch>();
  ForEachElementOf(pipeline, "pipewiresrc", [&](GstElement* source) {
    WatchedSource& watched = watch->sources.emplace_back();
    watched.target = TargetOf(source);
    watched.pad.reset(gst_element_get_static_pad(source, "src"));
    g_object_get(source, "fd", &watch->usedFd, nullptr);
  });
  if (watch->sources.empty()) return;

  // The sources' own connection cannot be shared, so there is another one,
  // which must be to the same daemon to know the same objects.
  const int usedFd = watch->usedFd;
  UniqueFd own;
  if (usedFd < 0) {
    own = ConnectToPipeWire();
  } else if (WhyNoPipeWireConnection(usedFd).empty()) {
    own = ConnectBeside(usedFd);
  }
  watch->registry = PipeWireRegistry::Open(
      UniqueFd(own ? fcntl(own.get(), F_DUPFD_CLOEXEC, 0) : -1), watch->answer);
  // A duplicate, because the host may close its own at any time.
  watch->connection = usedFd >= 0 ? UniqueFd(fcntl(usedFd, F_DUPFD_CLOEXEC, 0))
                                  : std::move(own);
  SetObjectData(pipeline, kWatchKey, std::move(watch));
}

bool HasLostFormat(GstElement* pipeline) {
  // What a start waits for does not come, whether or not the last change was
  // the last one.
  constexpr std::chrono::milliseconds kApart{150};
  SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr) return false;
  if (watch->ending && watch->ending->heldSince()) return true;
  if (!watch->registry) return false;
  watch->registry->Update(0);
  const auto now = std::chrono::steady_clock::now();
  for (WatchedSource& source : watch->sources) {
    if (!source.pad) continue;
    source.drift.Look(FormatOfPad(source.pad.get()),
                      watch->registry->FormatOf(source.target), now);
    if (source.drift.apartFor() >= kApart) return true;
  }
  return false;
}

const char* PostLostSources(GstElement* pipeline) {
  SourceWatch* watch = pipeline == nullptr ? nullptr : WatchOf(pipeline);
  if (watch == nullptr) return nullptr;
  std::vector<SourceLoss> losses = TakeLosses(*watch);
  TakeEnding(pipeline, *watch, losses);
  for (const SourceLoss& loss : losses) {
    PostElementError(pipeline, GST_RESOURCE_ERROR_NOT_FOUND, loss.text,
                     loss.code);
  }
  return watch->isStallReported && watch->registry
             ? error_code::kSoundServerStalled
             : nullptr;
}

}  // namespace linux_capture
