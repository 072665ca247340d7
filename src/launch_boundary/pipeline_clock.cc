#include "launch_boundary/pipeline_clock.h"

#include "base/gst_callback.h"
#include "base/pipeline_elements.h"

namespace linux_capture {
namespace {

// As far as a time may lie off the clock and still be believed; see
// SaneTimestamp.
constexpr GstClockTime kLongestWait = GST_SECOND;

using ClockWait = GstClockReturn (*)(GstClock*, GstClockEntry*,
                                     GstClockTimeDiff*);
ClockWait g_systemClockWait = nullptr;

// From 1.4 on, PipeWire's source waits until the time that a picture carries.
// After a jump ahead of an hour that would be an hour without pictures.
GstClockReturn WaitWithinReason(GstClock* clock, GstClockEntry* entry,
                                GstClockTimeDiff* jitter) {
  const GstClockTime now = gst_clock_get_time(clock);
  const GstClockTime wanted = GST_CLOCK_ENTRY_TIME(entry);
  if (wanted > now && wanted - now > kLongestWait) {
    if (jitter != nullptr) *jitter = GST_CLOCK_DIFF(wanted, now);
    return GST_CLOCK_EARLY;
  }
  return g_systemClockWait(clock, entry, jitter);
}

void InitClockClass(gpointer clockClass, gpointer) {
  auto* const methods = static_cast<GstClockClass*>(clockClass);
  g_systemClockWait = methods->wait;
  methods->wait = NoThrow<&WaitWithinReason>;
}

GType PipelineClockType() {
  static const GType kType = [] {
    constexpr const char* kName = "LinuxCapturePipelineClock";
    // Another copy of the module in this process may have been first.
    const GType known = g_type_from_name(kName);
    if (known != 0) return known;
    GTypeInfo info{};
    info.class_size = sizeof(GstSystemClockClass);
    info.class_init = NoThrow<&InitClockClass>;
    info.instance_size = sizeof(GstSystemClock);
    return g_type_register_static(GST_TYPE_SYSTEM_CLOCK, kName, &info,
                                  static_cast<GTypeFlags>(0));
  }();
  return kType;
}

GstClockPtr NewClock(GType type) {
  gpointer clock =
      g_object_new(type, "name", "LinuxCapturePipelineClock", "clock-type",
                   GST_CLOCK_TYPE_MONOTONIC, nullptr);
  return GstClockPtr(static_cast<GstClock*>(gst_object_ref_sink(clock)));
}

}  // namespace

GstClockPtr NewImpatientClock() { return NewClock(PipelineClockType()); }

void UseMonotonicClock(GstElement* pipeline, ClockWaits waits) {
  if (!GST_IS_PIPELINE(pipeline)) return;
  bool hasSource = false;
  // Silence takes the place of sources of sound, and its mixer goes on with
  // theirs.
  for (const char* source : {"pipewiresrc", "audiotestsrc"}) {
    ForEachElementOf(pipeline, source,
                     [&hasSource](GstElement*) { hasSource = true; });
  }
  if (!hasSource) return;
  // Left alone, each pipeline takes the clock of its own PipeWire connection.
  // From 1.4 on that one starts with the pipeline, so that neither sound and
  // picture could be compared nor either of them with the session's clock.
  const GstClockPtr clock = waits == ClockWaits::kBounded
                                ? NewImpatientClock()
                                : NewClock(GST_TYPE_SYSTEM_CLOCK);
  gst_pipeline_use_clock(GST_PIPELINE(pipeline), clock.get());
  // On the way to PLAYING the sinks go first and let the mixer go on, which
  // takes the pipeline's earlier base time until its own turn comes. With the
  // usual zero it would believe itself late by the age of the machine and
  // produce seconds of silence, behind which all sound would be too late.
  gst_element_set_base_time(pipeline, gst_clock_get_time(clock.get()));
}

}  // namespace linux_capture
