#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_

#include <gst/gst.h>

#include <optional>

#include "launch_boundary/pipewire_registry.h"

namespace linux_capture {

// When a producer changes the size of its pictures or the order of their
// colours, the source of PipeWire 0.3.65 goes on with the caps of the first:
// every converter refuses what comes, or nothing comes any more, and the
// picture stands still without a word. Later releases follow, or end the stream
// with an error of their own. An error message on the pipeline's bus tells it,
// once for each source. It is seen in two ways: by what the node says of
// itself, on a connection of our own, and where there is none by the pictures.

// By the pictures. Before PLAYING.
void ReportFormatChanges(GstElement* pipeline);

// What the pad's pictures are; none where it has none of raw video yet.
std::optional<PipeWireVideoFormat> FormatOfPad(GstPad* pad);

// Whether the caller, on whatever thread, is the first that has seen it.
bool ClaimFormatReport(GstElement* source);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_FORMAT_WATCH_H_
