#include "launch_boundary/videorate_latency.h"

#include <memory>
#include <utility>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/picture_backlog.h"
#include "launch_boundary/picture_turns.h"
#include "launch_boundary/screen_scaler.h"

namespace linux_capture {
namespace {

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

GstFlowReturn FeedPromptly(GstPad* pad, GstBufferPtr buffer,
                           RatePrompter& prompter) {
  const Arrival arrival = ArrivalOf(buffer.get(), prompter);
  if (IsSpare(prompter, arrival)) {
    Remember(arrival, arrival.time, false, prompter);
    return GST_FLOW_OK;
  }
  const GstClockTime time = CloseGap(arrival, prompter);
  const GstClockTime period = ExpectedPeriod(prompter, time);
  const bool isChosen = IsTheOne(prompter, time, period);
  Remember(arrival, time, isChosen, prompter);
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
                              RatePrompter& prompter, PictureBacklog& backlog) {
  // What is fed below passes here again.
  if (prompter.isFeeding) return GST_PAD_PROBE_OK;
  if (!GST_BUFFER_PTS_IS_VALID(passing.get())) return GST_PAD_PROBE_OK;
  ReadFixedPeriod(pad, prompter);
  GstBuffer* buffer = passing.Take().release();
  prompter.isFeeding = true;
  // Returns when the encoder is done: no queue is behind videorate.
  passing.Answer(FeedPromptly(pad, GstBufferPtr(buffer), prompter));
  backlog.EndTurn(prompter.outputPeriod);
  prompter.isFeeding = false;
  return GST_PAD_PROBE_HANDLED;
}

// A picture that will not be chosen need not be scaled first.
GstPadProbeReturn OnScalerInput(const PassingBuffer& passing,
                                RatePrompter& prompter,
                                PictureBacklog& backlog) {
  const GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
  if (backlog.LeavesOut(buffer, prompter.outputPeriod)) {
    return GST_PAD_PROBE_DROP;
  }
  prompter.hasNoTimeForCopies =
      backlog.HasNoTimeForCopies(prompter.outputPeriod);
  const Arrival arrival = ArrivalOf(buffer, prompter);
  const bool isWanted =
      MovesOutput(prompter, arrival) ||
      IsTheOne(prompter, arrival.time, ExpectedPeriod(prompter, arrival.time));
  if (isWanted && !IsSpare(prompter, arrival)) {
    backlog.BeginTurn();
    return GST_PAD_PROBE_OK;
  }
  Remember(arrival, arrival.time, false, prompter);
  return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn OnRateOutput(PassingBuffer& passing, RatePrompter& prompter,
                               PictureBacklog& backlog) {
  backlog.CountOutput();
  const GstBuffer* buffer = passing.get();
  if (!GST_BUFFER_PTS_IS_VALID(buffer) ||
      !GST_BUFFER_DURATION_IS_VALID(buffer)) {
    return GST_PAD_PROBE_OK;
  }
  const GstClockTime time = GST_BUFFER_PTS(buffer);
  const GstClockTime departure =
      Depart(time, GST_BUFFER_DURATION(buffer), prompter);
  if (departure != time) GST_BUFFER_PTS(passing.MakeWritable()) = departure;
  return GST_PAD_PROBE_OK;
}

// The scaler in front of a videorate, or null.
GstElementPtr ScalerBefore(GstElement* videoRate) {
  GstElementPtr before = UpstreamOf(videoRate);
  return before && IsVideoScaler(before.get()) ? std::move(before) : nullptr;
}

// The queue in front of an element, or null.
GstElementPtr QueueBefore(GstElement* element) {
  GstElementPtr before = UpstreamOf(element);
  return before && FactoryNameOf(before.get()) == "queue" ? std::move(before)
                                                          : nullptr;
}

GstPadPtr PadOf(GstElement* element, const char* name) {
  return GstPadPtr(gst_element_get_static_pad(element, name));
}

}  // namespace

PictureBacklogs DeliverPicturesPromptly(GstElement* pipeline,
                                        GstClockTime longestFilledGap) {
  PictureBacklogs backlogs;
  ForEachElementOf(pipeline, "videorate", [&](GstElement* videoRate) {
    const auto prompter = std::make_shared<RatePrompter>();
    prompter->longestFilledGap = longestFilledGap;
    const GstElementPtr scaler = ScalerBefore(videoRate);
    const auto backlog = std::make_shared<PictureBacklog>(
        scaler ? QueueBefore(scaler.get()) : nullptr);
    backlogs.push_back(backlog);
    AddBufferProbe(PadOf(videoRate, "sink").get(),
                   [prompter, backlog](GstPad* pad, PassingBuffer& buffer) {
                     return OnRateInput(pad, buffer, *prompter, *backlog);
                   });
    AddBufferProbe(PadOf(videoRate, "src").get(),
                   [prompter, backlog](GstPad*, PassingBuffer& buffer) {
                     return OnRateOutput(buffer, *prompter, *backlog);
                   });
    if (scaler) {
      AddBufferProbe(PadOf(scaler.get(), "sink").get(),
                     [prompter, backlog](GstPad*, PassingBuffer& buffer) {
                       return OnScalerInput(buffer, *prompter, *backlog);
                     });
    }
  });
  return backlogs;
}

}  // namespace linux_capture
