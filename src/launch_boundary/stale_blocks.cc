#include "launch_boundary/stale_blocks.h"

#include <memory>
#include <vector>

#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "base/stage_log.h"
#include "launch_boundary/stale_block_check.h"
#include "pixels/changed_blocks.h"

namespace linux_capture {
namespace {

constexpr const char* kStaleBlocksKey = "linux-capture-stale-blocks";

// Only the appsink's own streaming thread uses it: the probe, and the encoding
// that follows within the same call.
struct LayerOneMemory {
  GstBufferPtr picture;  // null unless the last one had temporal index 1
  GstCapsPtr caps;
  GstVideoInfo format{};  // of the caps
  std::vector<std::uint8_t> changed;
};

// False for what is no I420.
bool ReadFormat(GstPad* pad, LayerOneMemory& memory) {
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps) return false;
  if (caps.get() != memory.caps.get()) {
    memory.caps = std::move(caps);
    // A picture of another size cannot be compared with.
    memory.picture.reset();
    gst_video_info_init(&memory.format);
    if (gst_video_info_from_caps(&memory.format, memory.caps.get()) == FALSE) {
      // Untested: the caps around it are those of pictures.
      gst_video_info_init(&memory.format);
    }
  }
  return GST_VIDEO_INFO_FORMAT(&memory.format) == GST_VIDEO_FORMAT_I420;
}

bool HasChangedSince(GstBuffer* before, GstBuffer* now,
                     LayerOneMemory& memory) {
  const MappedVideoFrame old(memory.format, before, GST_MAP_READ);
  const MappedVideoFrame current(memory.format, now, GST_MAP_READ);
  return old.ok() && current.ok() &&
         MarkChangedBlocks(old.get(), current.get(), memory.changed);
}

GstPadProbeReturn TouchPicture(GstPad* pad, PassingBuffer& passing,
                               LayerOneMemory& memory) {
  if (!ReadFormat(pad, memory)) return GST_PAD_PROBE_OK;
  const GstBufferPtr before = std::move(memory.picture);
  if (!before || !HasChangedSince(before.get(), passing.get(), memory)) {
    return GST_PAD_PROBE_OK;
  }
  // The rate adapter may hold the picture for a repetition, and another branch
  // may be about to scale it: mapping for writing gives memory of our own
  // where that is so.
  MappedVideoFrame frame(memory.format, passing.MakeWritable(),
                         static_cast<GstMapFlags>(GST_MAP_READWRITE));
  if (frame.ok()) TouchBlocks(memory.changed, frame.get());
  return GST_PAD_PROBE_OK;
}

}  // namespace

void TouchPicturesAfterLayerOne(GstElement* appSink) {
  const GstPadPtr pad(gst_element_get_static_pad(appSink, "sink"));
  if (!pad) return;
  // It goes with the element, and so after the pad.
  SetObjectData(appSink, kStaleBlocksKey, std::make_unique<LayerOneMemory>());
  auto* memory = ObjectData<LayerOneMemory>(appSink, kStaleBlocksKey);
  AddBufferProbe(pad.get(), [memory](GstPad* owner, PassingBuffer& passing) {
    return TouchPicture(owner, passing, *memory);
  });
}

void AvoidStaleBlocks(GstElement* pipeline, const CaptureConfig& config) {
  constexpr std::int32_t kLayersWithFault = 3;
  if (config.temporalLayerCount < kLayersWithFault ||
      !InstalledOpenH264LeavesStaleBlocks()) {
    return;
  }
  ForEachElementOf(pipeline, "appsink", TouchPicturesAfterLayerOne);
  LogCaptureStage("launch:openh264-stale-blocks=avoided");
}

void NoteTemporalIndex(GstElement* appSink, GstBuffer* picture,
                       std::int32_t temporalIndex) {
  auto* memory = ObjectData<LayerOneMemory>(appSink, kStaleBlocksKey);
  if (memory == nullptr) return;
  memory->picture.reset(temporalIndex == 1 ? gst_buffer_ref(picture) : nullptr);
}

}  // namespace linux_capture
