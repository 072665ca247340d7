#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_H_

#include <gst/gst.h>

namespace linux_capture::standins {

// The type of an H.264 encoder with the pads and properties of "nvh264enc" that
// reads its pictures from GL memory and encodes them in software. Switches:
// "no-glmemory" leaves that memory out of the sink template, "fail-start" and
// "fail-after=N" (pictures) raise errors, "reject-keyframes" refuses to give a
// keyframe when asked, "hide-encoder=N" gives the encoder of branch N another
// name, so that nobody finds it.
GType NvEncoderType();

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NV_ENCODER_H_
