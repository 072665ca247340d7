#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_LAUNCH_BOUNDARY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_LAUNCH_BOUNDARY_H_

#include <gst/gst.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture {

// What the launch texts alone get wrong on real machines is put right here,
// between the text and PLAYING. Nothing of it shows in the reported texts.

// The text without those pipewiresrc properties that the installed element
// does not have; writes one stage line naming them. Older PipeWire releases
// lack them and the parser would refuse the whole text.
std::string OmitUnsupportedSourceProperties(const std::string& description);

// The same as a pure function: `isSupported` judges a property of pipewiresrc,
// `omitted` collects the names left out. Only `always-copy`, `use-bufferpool`
// and `on-disconnect` are ever omitted.
std::string OmitSourceProperties(
    const std::string& description,
    const std::function<bool(std::string_view)>& isSupported,
    std::vector<std::string>& omitted);

// Keeps every launched pipewiresrc from recording another source than the one
// asked for.
void ForbidSourceFallback(GstElement* pipeline);

// Pins the launched raw video pipeline to full-range BT.709 and the source to
// the highest branch rate, where it is free to choose; and makes it cope with
// a PipeWire source that stands still or has times of its own.
void PinRawVideo(GstElement* pipeline, const CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_LAUNCH_BOUNDARY_H_
