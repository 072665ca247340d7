#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_TURNS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_TURNS_H_

#include <gst/gst.h>

#include "base/gst_handles.h"

namespace linux_capture {

// What the probes of one videorate share; both run on its streaming thread.
// videorate's times are those of the source less the gaps that were left open.
struct RatePrompter {
  GstClockTime longestFilledGap = GST_CLOCK_TIME_NONE;
  // The sum of them, less what pictures came before their turn.
  GstClockTimeDiff openGaps = 0;
  GstCapsPtr sourceCaps;
  GstClockTime fixedPeriod = GST_CLOCK_TIME_NONE;  // of the source's caps
  GstClockTime lastArrival = GST_CLOCK_TIME_NONE;  // as the source stamped it
  GstClockTime lastFed = GST_CLOCK_TIME_NONE;      // as videorate got it
  GstClockTime nextOutput = GST_CLOCK_TIME_NONE;
  GstClockTime outputPeriod = GST_CLOCK_TIME_NONE;
  bool isStill = false;    // the last arrival was a repetition
  bool isPending = false;  // the picture that is repeated has not gone out
  // In the source's times: when the last picture went out, and when the next
  // one would be due if all had kept their distance.
  GstClockTime lastDeparture = 0;
  GstClockTime fairDeparture = 0;
  bool isFeeding = false;
  bool hasNoTimeForCopies = false;  // the encoder
};

// One that arrives.
struct Arrival {
  GstClockTime stamp;  // the source's
  GstClockTime time;   // videorate's
  bool isRepetition;
};

Arrival ArrivalOf(const GstBuffer* buffer, const RatePrompter& prompter);

// How long after a picture of videorate's `time` the next one is to be
// expected.
GstClockTime ExpectedPeriod(const RatePrompter& prompter, GstClockTime time);

// Whether no later picture can be nearer to the next output, if the next one is
// to be expected after `period`.
bool IsTheOne(const RatePrompter& prompter, GstClockTime time,
              GstClockTime period);

// A repetition of what has gone out already, in a branch that has had more
// than its share: in the place of it the next new picture can go out.
bool IsSpare(const RatePrompter& prompter, const Arrival& arrival);

// Whether the next output is to be moved to this picture: it ends a pause or a
// gap that is left open, as all are where the encoder is too slow for copies.
bool MovesOutput(const RatePrompter& prompter, const Arrival& arrival);

// What a picture's time is to videorate. Its own way to leave a gap open,
// max-duplication-time, counts the gap twice: for as long as the screen stood
// still it would drop what comes after. So gaps are taken out on this side and
// put back on the other.
GstClockTime CloseGap(const Arrival& arrival, RatePrompter& prompter);

// What is known of the arrival once it is decided whether it goes out.
void Remember(const Arrival& arrival, GstClockTime time, bool isChosen,
              RatePrompter& prompter);

// The time at which videorate is given a picture that has come at `time`.
GstClockTime FeedTime(GstClockTime time, bool isChosen,
                      const RatePrompter& prompter);

// A picture of videorate's `time` goes out; returns its time for the source.
GstClockTime Depart(GstClockTime time, GstClockTime period,
                    RatePrompter& prompter);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_TURNS_H_
