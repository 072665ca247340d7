#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SCREEN_SCALER_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SCREEN_SCALER_H_

#include <gst/gst.h>

namespace linux_capture {

// Puts in the place of every videoscale of the launched `pipeline` one that
// negotiates as it does, and makes I420 pictures smaller by area averages: in a
// fraction of the time, and closer to what an exact scaler would give. Every
// other picture is scaled as before, with the method that was set, and one of
// another shape gets black borders. For every pipeline that is not playing;
// before probes are added to the elements.
void ReplaceScalers(GstElement* pipeline);

// Whether the element is a videoscale, stock or replaced.
bool IsVideoScaler(GstElement* element);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SCREEN_SCALER_H_
