#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_PIPEWIRE_SOURCE_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_PIPEWIRE_SOURCE_H_

#include <gst/gst.h>

namespace linux_capture::standins {

// The type of a live source with the properties of "pipewiresrc" that gives
// numbered pictures in dma-buf memory. Size and rate can be switched:
// "source-width", "source-height", "source-rate".
GType PipeWireSourceType();

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_PIPEWIRE_SOURCE_H_
