#include "launch_boundary/mix_latency.h"

#include "base/gst_handles.h"

namespace linux_capture {

void WaitForLateSound(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  g_object_set(mixer.get(), "latency", kLateSound, nullptr);
}

}  // namespace linux_capture
