#include "launch_boundary/repeated_pictures.h"

#include "base/pad_probe.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

// Only compared: the source holds the picture that it may repeat until the next
// one has come, so no other picture can have its memory meanwhile. `last` is
// used by the source's own thread alone.
void MarkRepetition(PassingBuffer& passing, const GstMemory*& last) {
  GstBuffer* const buffer = passing.get();
  const GstMemory* const memory = gst_buffer_n_memory(buffer) > 0
                                      ? gst_buffer_peek_memory(buffer, 0)
                                      : nullptr;
  const bool isRepeated = memory != nullptr && memory == last;
  last = memory;
  if (isRepeated == IsRepetition(buffer)) return;
  if (isRepeated) {
    GST_BUFFER_FLAG_SET(passing.MakeWritableAndKeep(),
                        GST_BUFFER_FLAG_DROPPABLE);
  } else {
    GST_BUFFER_FLAG_UNSET(passing.MakeWritableAndKeep(),
                          GST_BUFFER_FLAG_DROPPABLE);
  }
}

}  // namespace

void MarkRepetitions(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    // One that cannot repeat may use the memory of a picture for the next one.
    if (!HasProperty(source, "keepalive-time")) return;
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    if (!pad) return;
    const GstMemory* last = nullptr;
    AddBufferProbe(pad.get(), [last](GstPad*, PassingBuffer& buffer) mutable {
      MarkRepetition(buffer, last);
      return GST_PAD_PROBE_OK;
    });
  });
}

}  // namespace linux_capture
