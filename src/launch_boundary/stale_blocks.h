#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCKS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCKS_H_

#include <gst/gst.h>

#include <cstdint>

#include "config/capture_config.h"

namespace linux_capture {

// With three temporal layers OpenH264 up to 2.6.0 leaves blocks of the picture
// before in the picture after one of temporal index 1, where they are again as
// they were before that: docs/openh264-stale-blocks.md. It takes a block for
// one that stands still, and does not where a single sample of it differs. So
// in that picture one chroma sample of each changed macroblock is moved by one
// step, which nobody sees; no later picture is predicted from it.
//
// Only where three layers are asked for and the installed library has the
// fault. Before PLAYING.
void AvoidStaleBlocks(GstElement* pipeline, const CaptureConfig& config);

// Tells the repair of the appsink what the picture that it handed out last was
// encoded as. Does nothing where there is none. The appsink's own thread.
void NoteTemporalIndex(GstElement* appSink, GstBuffer* picture,
                       std::int32_t temporalIndex);

// The repair itself, wherever the picture goes next.
void TouchPicturesAfterLayerOne(GstElement* appSink);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCKS_H_
