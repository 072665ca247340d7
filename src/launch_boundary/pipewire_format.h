#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_FORMAT_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_FORMAT_H_

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

#include <optional>

#include "launch_boundary/pipewire_registry.h"

struct spa_pod;

namespace linux_capture {

// What a parameter of a node says of its pictures; none where it is no format
// of raw pictures.
std::optional<PipeWireVideoFormat> ReadVideoFormat(const spa_pod* param);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPEWIRE_FORMAT_H_
