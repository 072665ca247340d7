#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_VA_ENCODER_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_VA_ENCODER_H_

#include <gst/gst.h>

namespace linux_capture::standins {

// The type of an element with the pads of "vah264enc" and nothing behind them:
// it is only ever looked at.
GType VaEncoderType();

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_VA_ENCODER_H_
