#include "session/stillness.h"

#include "session/pipeline_elements.h"

namespace linux_capture {
namespace {

// A compositor sends pictures only when something changes. While nothing does,
// the source repeats its last picture at this distance, from PipeWire 0.3.65
// on. The rate adapter holds every picture until the next one comes, so this
// is also how long the last picture before a pause may wait: measured on three
// branches at 30, 20 and 15, the first picture after ten still seconds arrived
// after 53 to 105 ms with 50 ms and after 102 to 107 with 100. Repeating cost
// a tenth of one core for three small branches, as moving pictures do.
constexpr gint kKeepaliveMs = 50;

// Longer gaps are left open instead of being filled with copies at once, in
// front of the picture that ends them: a source that stalls, or a PipeWire that
// cannot repeat. It has to exceed the keepalive by what a busy machine may be
// late, because the picture after an open gap waits for one more: with 80 ms
// and a keepalive of 100 the first picture took 204 to 208 ms.
constexpr guint64 kMaxDuplicationTime = 250 * GST_MSECOND;

}  // namespace

void PrepareForStillness(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    if (HasProperty(source, "keepalive-time")) {
      g_object_set(source, "keepalive-time", kKeepaliveMs, nullptr);
    }
  });
  ForEachElementOf(pipeline, "videorate", [](GstElement* rate) {
    g_object_set(rate, "max-duplication-time", kMaxDuplicationTime, nullptr);
  });
}

}  // namespace linux_capture
