#include "launch_boundary/videorate_latency.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/screen_scaler.h"

namespace linux_capture {
namespace {

// What the probes of one videorate share; both run on its streaming thread.
// videorate's times are those of the source less the gaps that were left open.
struct RatePrompter {
  GstClockTime longestFilledGap = GST_CLOCK_TIME_NONE;
  GstClockTime openGaps = 0;  // the sum of them
  GstCapsPtr sourceCaps;
  GstClockTime fixedPeriod = GST_CLOCK_TIME_NONE;  // of the source's caps
  GstClockTime lastArrival = GST_CLOCK_TIME_NONE;  // as the source stamped it
  GstClockTime lastFed = GST_CLOCK_TIME_NONE;      // as videorate got it
  GstClockTime nextOutput = GST_CLOCK_TIME_NONE;
  GstClockTime outputPeriod = GST_CLOCK_TIME_NONE;
  bool isFeeding = false;
};

void ReadFixedPeriod(GstPad* pad, RatePrompter& prompter) {
  GstCapsPtr caps(gst_pad_get_current_caps(pad));
  if (!caps || caps.get() == prompter.sourceCaps.get()) return;
  prompter.sourceCaps = std::move(caps);
  prompter.fixedPeriod = GST_CLOCK_TIME_NONE;
  gint rate = 0;
  gint perSeconds = 0;
  if (gst_structure_get_fraction(
          gst_caps_get_structure(prompter.sourceCaps.get(), 0), "framerate",
          &rate, &perSeconds) != FALSE &&
      rate > 0 && perSeconds > 0) {
    prompter.fixedPeriod =
        gst_util_uint64_scale_int(GST_SECOND, perSeconds, rate);
  }
}

// How long after this picture the next one is to be expected.
GstClockTime ExpectedPeriod(const RatePrompter& prompter, GstClockTime time) {
  if (GST_CLOCK_TIME_IS_VALID(prompter.fixedPeriod)) {
    return prompter.fixedPeriod;
  }
  // A source of a variable rate: as long as the last one took. The first
  // picture after a pause tells nothing; no later one can take its place.
  const GstClockTime least = GST_CLOCK_TIME_IS_VALID(prompter.lastArrival) &&
                                     time > prompter.lastArrival
                                 ? time - prompter.lastArrival
                                 : 0;
  return std::min(least, prompter.outputPeriod);
}

// Whether no later picture can be nearer to the next output, if the next one is
// to be expected after `period`.
bool IsTheOne(const RatePrompter& prompter, GstClockTime time,
              GstClockTime period) {
  if (!GST_CLOCK_TIME_IS_VALID(prompter.nextOutput)) return true;
  return time + period / 2 >= prompter.nextOutput;
}

GstFlowReturn Feed(GstPad* pad, GstBuffer* buffer, GstClockTime time,
                   RatePrompter& prompter) {
  GST_BUFFER_PTS(buffer) = time;
  prompter.lastFed = time;
  return gst_pad_chain(pad, buffer);
}

// Lets videorate have a picture that it delivers at once: a copy, which shares
// the picture itself, is the next one that it waits for. A picture that is
// chosen gets the time of the output, so that its copy hardly has to be later:
// another picture can follow soon.
GstFlowReturn FeedChosen(GstPad* pad, GstBuffer* buffer, GstClockTime time,
                         RatePrompter& prompter) {
  GstBufferPtr copy(gst_buffer_copy(buffer));
  const GstFlowReturn flow = Feed(pad, buffer, time, prompter);
  return flow == GST_FLOW_OK ? Feed(pad, copy.release(), time + 1, prompter)
                             : flow;
}

GstClockTime TimeForRate(GstClockTime stamp, const RatePrompter& prompter) {
  return stamp > prompter.openGaps ? stamp - prompter.openGaps : 0;
}

// A branch that takes few pictures waits longer for each than a source stands
// still between two signs of life, and none of that is a gap.
GstClockTime LongestFilledGap(const RatePrompter& prompter) {
  return std::max(prompter.longestFilledGap, prompter.outputPeriod / 4 * 5);
}

// Counted from the last picture that came, not from the last one that was
// chosen: a source that moves leaves no gap, however few a branch takes.
bool EndsOpenGap(GstClockTime time, const RatePrompter& prompter) {
  return GST_CLOCK_TIME_IS_VALID(prompter.longestFilledGap) &&
         GST_CLOCK_TIME_IS_VALID(prompter.nextOutput) &&
         GST_CLOCK_TIME_IS_VALID(prompter.lastArrival) &&
         time > prompter.lastArrival + LongestFilledGap(prompter) &&
         time > prompter.nextOutput;
}

// What a picture's time is to videorate. Its own way to leave a gap open,
// max-duplication-time, counts the gap twice: for as long as the screen stood
// still it would drop what comes after. So gaps are taken out on this side and
// put back on the other.
GstClockTime CloseGap(GstClockTime stamp, RatePrompter& prompter) {
  const GstClockTime time = TimeForRate(stamp, prompter);
  if (!EndsOpenGap(time, prompter)) return time;
  prompter.openGaps += time - prompter.nextOutput;
  return prompter.nextOutput;
}

// The time at which videorate is given a picture that has come at `time`.
GstClockTime FeedTime(GstClockTime time, bool isChosen,
                      const RatePrompter& prompter) {
  GstClockTime fed = time;
  if (isChosen && GST_CLOCK_TIME_IS_VALID(prompter.nextOutput)) {
    fed = std::max(fed, prompter.nextOutput);
  }
  if (GST_CLOCK_TIME_IS_VALID(prompter.lastFed)) {
    fed = std::max(fed, prompter.lastFed + 1);
  }
  return fed;
}

GstFlowReturn FeedPromptly(GstPad* pad, GstBufferPtr buffer,
                           RatePrompter& prompter) {
  const GstClockTime time = CloseGap(GST_BUFFER_PTS(buffer.get()), prompter);
  const GstClockTime period = ExpectedPeriod(prompter, time);
  const bool isChosen = IsTheOne(prompter, time, period);
  prompter.lastArrival = time;
  if (!isChosen) {
    return Feed(pad, buffer.release(), FeedTime(time, false, prompter),
                prompter);
  }
  // After a first picture that came early, one that is nearest to an output is
  // nearest to the next one too. Left to wait there, it would go out when the
  // following one has come, and so would all the rest of the capture. The next
  // picture of a slower source may be too far away for its time to be moved.
  const int mostOutputs = period <= prompter.outputPeriod ? 2 : 1;
  for (int output = 1;; ++output) {
    const GstClockTime due = prompter.nextOutput;
    GstBufferPtr fed(gst_buffer_copy(buffer.get()));
    const GstFlowReturn flow = FeedChosen(
        pad, fed.release(), FeedTime(time, true, prompter), prompter);
    if (flow != GST_FLOW_OK || output == mostOutputs ||
        prompter.nextOutput == due || !IsTheOne(prompter, time, period)) {
      return flow;
    }
  }
}

GstPadProbeReturn OnRateInput(GstPad* pad, PassingBuffer& passing,
                              RatePrompter& prompter) {
  // What is fed below passes here again.
  if (prompter.isFeeding) return GST_PAD_PROBE_OK;
  if (!GST_BUFFER_PTS_IS_VALID(passing.get())) return GST_PAD_PROBE_OK;
  ReadFixedPeriod(pad, prompter);
  GstBuffer* buffer = passing.Take().release();
  prompter.isFeeding = true;
  passing.Answer(FeedPromptly(pad, GstBufferPtr(buffer), prompter));
  prompter.isFeeding = false;
  return GST_PAD_PROBE_HANDLED;
}

// A picture that will not be chosen need not be scaled first.
GstPadProbeReturn OnScalerInput(const PassingBuffer& passing,
                                RatePrompter& prompter) {
  const GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
  const GstClockTime time = TimeForRate(GST_BUFFER_PTS(buffer), prompter);
  if (EndsOpenGap(time, prompter) ||
      IsTheOne(prompter, time, ExpectedPeriod(prompter, time))) {
    return GST_PAD_PROBE_OK;
  }
  prompter.lastArrival = time;
  return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn OnRateOutput(PassingBuffer& passing, RatePrompter& prompter) {
  const GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer) ||
      !GST_BUFFER_DURATION_IS_VALID(buffer)) {
    return GST_PAD_PROBE_OK;
  }
  prompter.outputPeriod = GST_BUFFER_DURATION(buffer);
  prompter.nextOutput = GST_BUFFER_PTS(buffer) + prompter.outputPeriod;
  if (prompter.openGaps > 0) {
    GST_BUFFER_PTS(passing.MakeWritable()) += prompter.openGaps;
  }
  return GST_PAD_PROBE_OK;
}

// The scaler in front of a videorate, or null.
GstElementPtr ScalerBefore(GstElement* videoRate) {
  GstElementPtr before = UpstreamOf(videoRate);
  return before && IsVideoScaler(before.get()) ? std::move(before) : nullptr;
}

GstPadPtr PadOf(GstElement* element, const char* name) {
  return GstPadPtr(gst_element_get_static_pad(element, name));
}

}  // namespace

void DeliverPicturesPromptly(GstElement* pipeline,
                             GstClockTime longestFilledGap) {
  ForEachElementOf(pipeline, "videorate", [=](GstElement* videoRate) {
    const auto prompter = std::make_shared<RatePrompter>();
    prompter->longestFilledGap = longestFilledGap;
    AddBufferProbe(PadOf(videoRate, "sink").get(),
                   [prompter](GstPad* pad, PassingBuffer& buffer) {
                     return OnRateInput(pad, buffer, *prompter);
                   });
    AddBufferProbe(PadOf(videoRate, "src").get(),
                   [prompter](GstPad*, PassingBuffer& buffer) {
                     return OnRateOutput(buffer, *prompter);
                   });
    if (const GstElementPtr scaler = ScalerBefore(videoRate)) {
      AddBufferProbe(PadOf(scaler.get(), "sink").get(),
                     [prompter](GstPad*, PassingBuffer& buffer) {
                       return OnScalerInput(buffer, *prompter);
                     });
    }
  });
}

}  // namespace linux_capture
