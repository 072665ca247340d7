#include "launch_boundary/picture_turns.h"

#include <algorithm>

#include "launch_boundary/keepalive.h"
#include "launch_boundary/repeated_pictures.h"

namespace linux_capture {
namespace {

// The least distance of a picture that ends a pause to the one before.
constexpr GstClockTime kLeastDistance = 1 * GST_MSECOND;

// For so long after a picture a repetition may be left out.
constexpr GstClockTime kMostSilence = 2 * kStillPictureDistance;

GstClockTime TimeForRate(GstClockTime stamp, const RatePrompter& prompter) {
  const GstClockTimeDiff time =
      static_cast<GstClockTimeDiff>(stamp) - prompter.openGaps;
  return time > 0 ? static_cast<GstClockTime>(time) : 0;
}

// Whether this is the new picture after repetitions, and there is room for it
// where its turn has not come.
bool EndsPause(const RatePrompter& prompter, const Arrival& arrival) {
  return prompter.isStill && !arrival.isRepetition &&
         GST_CLOCK_TIME_IS_VALID(prompter.nextOutput) &&
         (arrival.time >= prompter.nextOutput ||
          prompter.fairDeparture <=
              arrival.stamp + prompter.outputPeriod / 2 * 3);
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

bool EndsGapWithoutCopies(GstClockTime time, const RatePrompter& prompter) {
  return prompter.hasNoTimeForCopies &&
         GST_CLOCK_TIME_IS_VALID(prompter.nextOutput) &&
         time > prompter.nextOutput;
}

// Moves the next output to a picture that ends a pause.
GstClockTime MoveOutput(GstClockTime time, RatePrompter& prompter) {
  const GstClockTime last = prompter.nextOutput - prompter.outputPeriod;
  const GstClockTime output = std::max(time, last + kLeastDistance);
  prompter.openGaps += GST_CLOCK_DIFF(prompter.nextOutput, output);
  return prompter.nextOutput;
}

}  // namespace

Arrival ArrivalOf(const GstBuffer* buffer, const RatePrompter& prompter) {
  const GstClockTime stamp = GST_BUFFER_PTS(buffer);
  return {.stamp = stamp,
          .time = TimeForRate(stamp, prompter),
          .isRepetition = IsRepetition(buffer)};
}

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

bool IsTheOne(const RatePrompter& prompter, GstClockTime time,
              GstClockTime period) {
  if (!GST_CLOCK_TIME_IS_VALID(prompter.nextOutput)) return true;
  return time + period / 2 >= prompter.nextOutput;
}

bool IsSpare(const RatePrompter& prompter, const Arrival& arrival) {
  return arrival.isRepetition && !prompter.isPending &&
         prompter.fairDeparture > arrival.stamp + prompter.outputPeriod / 4 &&
         arrival.stamp < prompter.lastDeparture + kMostSilence;
}

bool MovesOutput(const RatePrompter& prompter, const Arrival& arrival) {
  return EndsPause(prompter, arrival) || EndsOpenGap(arrival.time, prompter) ||
         EndsGapWithoutCopies(arrival.time, prompter);
}

GstClockTime CloseGap(const Arrival& arrival, RatePrompter& prompter) {
  return MovesOutput(prompter, arrival) ? MoveOutput(arrival.time, prompter)
                                        : arrival.time;
}

void Remember(const Arrival& arrival, GstClockTime time, bool isChosen,
              RatePrompter& prompter) {
  prompter.lastArrival = time;
  prompter.isStill = arrival.isRepetition;
  // What is repeated may be what was left out before.
  prompter.isPending =
      !isChosen && (prompter.isPending || !arrival.isRepetition);
}

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

GstClockTime Depart(GstClockTime time, GstClockTime period,
                    RatePrompter& prompter) {
  prompter.outputPeriod = period;
  prompter.nextOutput = time + period;
  prompter.lastDeparture = static_cast<GstClockTime>(
      static_cast<GstClockTimeDiff>(time) + prompter.openGaps);
  prompter.fairDeparture =
      std::max(prompter.fairDeparture, prompter.lastDeparture) + period;
  return prompter.lastDeparture;
}

}  // namespace linux_capture
