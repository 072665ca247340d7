#include "launch_boundary/source_timestamps.h"

#include <algorithm>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/pipeline_clock.h"

namespace linux_capture {
namespace {

// Far more than any picture is under way, and little enough that the rate
// adapters of all branches fill such a gap in no time.
constexpr GstClockTime kLongestUnderWay = GST_SECOND;

// A picture may have the time at which it is to be shown. One that was further
// ahead would hold back what follows, should the times then step back.
constexpr GstClockTime kFurthestAhead = 100 * GST_MSECOND;

// A time of zero reads as "no time" further on, where it would be replaced by
// the age of the machine; and the least step is one that microseconds show.
constexpr GstClockTime kFirstTime = 1 * GST_USECOND;
constexpr GstClockTime kLeastStep = 1 * GST_USECOND;

// What a source's probe remembers; only the source's own thread uses it.
struct LastTimestamp {
  GstClockTime read = GST_CLOCK_TIME_NONE;   // what the buffer carried
  GstClockTime value = GST_CLOCK_TIME_NONE;  // what it was taken for
};

GstClockTime RunningTimeNow(GstElement* source) {
  const GstClockPtr clock(gst_element_get_clock(source));
  const GstClockTime base = gst_element_get_base_time(source);
  if (!clock || !GST_CLOCK_TIME_IS_VALID(base)) return GST_CLOCK_TIME_NONE;
  const GstClockTime now = gst_clock_get_time(clock.get());
  return GST_CLOCK_TIME_IS_VALID(now) && now > base ? now - base : 0;
}

void Restamp(PassingBuffer& passing, GstClockTime timestamp) {
  GstBuffer* stamped = passing.MakeWritableAndKeep();
  GST_BUFFER_PTS(stamped) = timestamp;
  GST_BUFFER_DTS(stamped) = timestamp;
}

void KeepTimestampSane(GstPad* pad, PassingBuffer& passing,
                       LastTimestamp& last) {
  const GstElementPtr source(gst_pad_get_parent_element(pad));
  if (!source) return;
  const GstClockTime now = RunningTimeNow(source.get());
  if (!GST_CLOCK_TIME_IS_VALID(now)) return;
  const GstClockTime stamp = GST_BUFFER_PTS(passing.get());
  // From PipeWire 1.4 on, a producer that gives no times has one that stands
  // still.
  const bool isNoTime = stamp == last.read;
  last.read = stamp;
  last.value =
      SaneTimestamp(isNoTime ? GST_CLOCK_TIME_NONE : stamp, now, last.value);
  if (last.value != stamp) Restamp(passing, last.value);
}

}  // namespace

GstClockTime SaneTimestamp(GstClockTime stamp, GstClockTime now,
                           GstClockTime previous) {
  // One that steps back says nothing: taken at its word, no picture could go
  // out until its times have caught up.
  const bool isSane = GST_CLOCK_TIME_IS_VALID(stamp) &&
                      stamp <= now + kFurthestAhead &&
                      stamp + kLongestUnderWay >= now &&
                      (!GST_CLOCK_TIME_IS_VALID(previous) || stamp > previous);
  const GstClockTime sane = isSane ? stamp : now;
  const GstClockTime least =
      GST_CLOCK_TIME_IS_VALID(previous) ? previous + kLeastStep : kFirstTime;
  return std::max(sane, least);
}

void KeepTimestampsSane(GstElement* pipeline) {
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstPadPtr pad(gst_element_get_static_pad(source, "src"));
    if (!pad) return;
    AddBufferProbe(pad.get(),
                   [last = LastTimestamp{}](GstPad* sourcePad,
                                            PassingBuffer& buffer) mutable {
                     KeepTimestampSane(sourcePad, buffer, last);
                     return GST_PAD_PROBE_OK;
                   });
  });
}

}  // namespace linux_capture
