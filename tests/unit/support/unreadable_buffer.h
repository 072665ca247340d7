#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_UNREADABLE_BUFFER_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_UNREADABLE_BUFFER_H_

#include <gst/gst.h>

#include "support/app_pipeline.h"

namespace linux_capture {

// A buffer of `size` bytes whose memory refuses every mapping.
GstBufferPtr MakeUnreadableBuffer(gsize size, GstClockTime pts);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_UNREADABLE_BUFFER_H_
