#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_COLORIMETRY_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_COLORIMETRY_H_

#include <gst/gst.h>

namespace linux_capture {

// Full range, BT.709 matrix, transfer and primaries, as GStreamer writes it.
inline constexpr const char* kFullRangeBt709 = "1:3:5:1";

// The encoders write "full range, BT.709" into every stream, while the
// converter would choose a limited range and, for small pictures, BT.601:
// every player would show washed-out, shifted colours. One colorimetry all
// through also spares each scaler a conversion.
void PinColorimetry(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_COLORIMETRY_H_
