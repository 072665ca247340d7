#include "launch_boundary/source_rate.h"

#include <algorithm>
#include <cstdint>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

std::int32_t HighestRate(const CaptureConfig& config) {
  std::int32_t highest = 0;
  for (const VideoBranchConfig& branch : config.branches) {
    highest = std::max(highest, branch.fps);
  }
  return highest;
}

// `pinned` makes the caps of the filter behind the converter from those that
// the text gives and the same caps with the rate.
template <typename Pin>
void PinSourceRate(GstElement* pipeline, const CaptureConfig& config, Pin pin) {
  const std::int32_t rate = HighestRate(config);
  ForEachElementOf(pipeline, "capsfilter", [&](GstElement* capsFilter) {
    const GstElementPtr upstream = UpstreamOf(capsFilter);
    if (!upstream || FactoryNameOf(upstream.get()) != "videoconvert") return;
    GstCaps* raw = nullptr;
    g_object_get(capsFilter, "caps", &raw, nullptr);
    GstCapsPtr anyRate(raw);
    GstCapsPtr fixedRate(gst_caps_copy(anyRate.get()));
    gst_caps_set_simple(fixedRate.get(), "framerate", GST_TYPE_FRACTION, rate,
                        1, nullptr);
    const GstCapsPtr pinned = pin(std::move(fixedRate), std::move(anyRate));
    g_object_set(capsFilter, "caps", pinned.get(), nullptr);
  });
}

}  // namespace

void RequireHighestRate(GstElement* pipeline, const CaptureConfig& config) {
  PinSourceRate(pipeline, config, [](GstCapsPtr fixedRate, const GstCapsPtr&) {
    return fixedRate;
  });
}

void PreferHighestRate(GstElement* pipeline, const CaptureConfig& config) {
  PinSourceRate(pipeline, config, [](GstCapsPtr fixedRate, GstCapsPtr anyRate) {
    gst_caps_append(fixedRate.get(), anyRate.release());
    return fixedRate;
  });
}

}  // namespace linux_capture
