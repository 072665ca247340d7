#ifndef LINUX_CAPTURE_BASE_GST_CALLBACK_H_
#define LINUX_CAPTURE_BASE_GST_CALLBACK_H_

#include <gst/gst.h>

#include "base/c_callback.h"
#include "base/glib_callback.h"

namespace linux_capture {

// The stream of an element ends with an error of its own; a probe and a bus
// handler stand aside.
template <>
struct AfterException<GstFlowReturn> {
  static GstFlowReturn Answer() noexcept { return GST_FLOW_ERROR; }
};
template <>
struct AfterException<GstPadProbeReturn> {
  static GstPadProbeReturn Answer() noexcept { return GST_PAD_PROBE_OK; }
};
template <>
struct AfterException<GstBusSyncReply> {
  static GstBusSyncReply Answer() noexcept { return GST_BUS_PASS; }
};
template <>
struct AfterException<GstClockReturn> {
  static GstClockReturn Answer() noexcept { return GST_CLOCK_ERROR; }
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GST_CALLBACK_H_
