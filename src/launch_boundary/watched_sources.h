#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_WATCHED_SOURCES_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_WATCHED_SOURCES_H_

#include <gst/gst.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "base/gst_handles.h"
#include "base/unique_fd.h"
#include "launch_boundary/format_drift.h"
#include "launch_boundary/held_ending.h"
#include "launch_boundary/pipewire_registry.h"

namespace linux_capture {

struct WatchedSource {
  PipeWireTarget target;
  bool isLinked = false;          // at the last look
  bool wasUnlinked = false;       // since the last look
  std::size_t readersBefore = 0;  // before our own
  GstPadPtr pad{};                // what comes from it in the pipeline
  FormatDrift drift{};
};

// What is known of the PipeWire sources of one pipeline. It goes with the
// pipeline and is used by one thread at a time, which holds the capture mutex
// or works for one that does.
struct SourceWatch {
  int usedFd = -1;      // the host's, as it was told; -1 for none
  UniqueFd connection;  // of the sources' own or to their daemon
  bool isConnectionLost = false;
  bool isStallReported = false;
  PipeWireAnswer answer = PipeWireAnswer::kNotAsked;
  std::unique_ptr<PipeWireRegistry> registry;  // null when there is none
  std::vector<WatchedSource> sources;          // those not lost yet
  std::shared_ptr<HeldEnding> ending;          // null when nothing is held
};

// The watch of a launched pipeline, or null.
SourceWatch* WatchOf(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_WATCHED_SOURCES_H_
