#include "launch_boundary/mix_latency.h"

#include <algorithm>
#include <memory>

#include "base/gst_handles.h"
#include "base/pad_probe.h"
#include "base/relaxed.h"

namespace linux_capture {
namespace {

// Where the mix has got to: written by the mixer's thread, read by those of its
// sources.
using MixedUntil = Relaxed<GstClockTime>;

// How far the time of a buffer may be off its place: after it, where the sound
// is ahead of its picture, and before it, where some would have to be left out.
constexpr GstClockTimeDiff kMostAhead = 25 * GST_MSECOND;
constexpr GstClockTimeDiff kMostBehind = 40 * GST_MSECOND;

// After more than that a source has paused.
constexpr GstClockTime kLongestHole = GST_SECOND;

// For how long all sound must have come too early for its place before some of
// it is left out to be in step again.
constexpr GstClockTime kTooEarly = GST_SECOND;

// Buffers in a row whose times are off their places, all to one side.
struct OffTimes {
  GstClockTime since = GST_CLOCK_TIME_NONE;
  GstClockTimeDiff least = 0;
  GstClockTimeDiff sum = 0;
  GstClockTimeDiff count = 0;

  // For how long that has been so.
  GstClockTime Add(GstClockTime stamp, GstClockTimeDiff off,
                   GstClockTimeDiff usual) {
    if (off < usual) {
      since = GST_CLOCK_TIME_NONE;
      return 0;
    }
    if (!GST_CLOCK_TIME_IS_VALID(since)) {
      since = stamp;
      least = off;
      sum = 0;
      count = 0;
    }
    least = std::min(least, off);
    sum += off;
    ++count;
    return stamp > since ? stamp - since : 0;
  }
};

// Where in the mix a source's sound belongs; only the source's thread uses it.
class SoundPlace {
 public:
  struct Place {
    GstClockTime begin = 0;
    bool isAnew = false;    // not right behind the buffer before
    GstClockTime late = 0;  // what was too late for its place
  };

  Place Take(GstClockTime stamp, GstClockTime duration, bool isAnew,
             GstClockTime mixedUntil) {
    Place place;
    if (isAnew || !GST_CLOCK_TIME_IS_VALID(next_) ||
        stamp > next_ + kLongestHole) {
      MoveTo(stamp, place);
    } else {
      Follow(stamp, place);
    }
    if (next_ >= mixedUntil) {
      isLeftOut_ = false;
    } else if (!isLeftOut_) {
      place.late = mixedUntil - next_;
      MoveTo(std::max(stamp, mixedUntil), place);
    }
    place.begin = next_;
    next_ += duration;
    return place;
  }

 private:
  void MoveTo(GstClockTime time, Place& place) {
    next_ = time;
    place.isAnew = true;
    after_ = {};
    before_ = {};
  }

  // Pictures are as late as sound on the whole, so that is what sound in step
  // with them is moved by. What is left out is the least, which is no jitter.
  void Follow(GstClockTime stamp, Place& place) {
    const auto off = GST_CLOCK_DIFF(next_, stamp);
    if (after_.Add(stamp, off, kMostAhead) >= kLostTime) {
      MoveTo(next_ + static_cast<GstClockTime>(after_.sum / after_.count),
             place);
    } else if (before_.Add(stamp, -off, kMostBehind) >= kTooEarly) {
      MoveTo(next_ - static_cast<GstClockTime>(before_.least), place);
      // The mix has gone on already from where this begins now.
      isLeftOut_ = true;
    }
  }

  GstClockTime next_ = GST_CLOCK_TIME_NONE;
  OffTimes after_;
  OffTimes before_;
  bool isLeftOut_ = false;
};

GstClockTime SoundDuration(GstBuffer* buffer) {
  constexpr guint64 kBytesPerSecond = guint64{48'000} * 2 * 2;
  return gst_util_uint64_scale(gst_buffer_get_size(buffer), GST_SECOND,
                               kBytesPerSecond);
}

// What is later than a mixer may ever wait comes from a source that paused.
void WaitLonger(GstPad* source, GstClockTime late) {
  const GstElementPtr mixer(gst_pad_get_parent_element(source));
  if (!mixer) return;
  guint64 latency = 0;
  g_object_get(mixer.get(), "latency", &latency, nullptr);
  if (latency + late > kLatestSound) return;
  g_object_set(mixer.get(), "latency", latency + late, nullptr);
}

std::shared_ptr<MixedUntil> FollowMix(GstElement* mixer) {
  auto until = std::make_shared<MixedUntil>(GstClockTime{0});
  const GstPadPtr mixed(gst_element_get_static_pad(mixer, "src"));
  if (!mixed) return until;
  AddBufferProbe(mixed.get(), [until](GstPad*, PassingBuffer& buffer) {
    const GstClockTime begin = GST_BUFFER_PTS(buffer.get());
    if (GST_CLOCK_TIME_IS_VALID(begin)) {
      until->Set(begin + SoundDuration(buffer.get()));
    }
    return GST_PAD_PROBE_OK;
  });
  return until;
}

template <typename Visit>
void ForEachSourceOf(GstElement* mixer, Visit visit) {
  const GstIteratorPtr pads(gst_element_iterate_sink_pads(mixer));
  GValue item = G_VALUE_INIT;
  while (gst_iterator_next(pads.get(), &item) == GST_ITERATOR_OK) {
    const GstPadPtr pad(GST_PAD(gst_object_ref(g_value_get_object(&item))));
    g_value_unset(&item);
    visit(pad.get());
  }
}

void PlaceSound(GstPad* source, PassingBuffer& passing, bool isAlone,
                GstClockTime mixedUntil, SoundPlace& places) {
  const GstClockTime stamp = GST_BUFFER_PTS(passing.get());
  if (!GST_CLOCK_TIME_IS_VALID(stamp)) return;
  const SoundPlace::Place place = places.Take(
      stamp, SoundDuration(passing.get()),
      GST_BUFFER_FLAG_IS_SET(passing.get(), GST_BUFFER_FLAG_DISCONT) != FALSE,
      mixedUntil);
  if (place.late > 0 && !isAlone) WaitLonger(source, place.late);
  GstBuffer* buffer = passing.MakeWritable();
  GST_BUFFER_PTS(buffer) = place.begin;
  if (place.isAnew) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
}

void PlaceSoundOf(GstElement* mixer, bool isAlone) {
  ForEachSourceOf(mixer, [isAlone, until = FollowMix(mixer)](GstPad* source) {
    AddBufferProbe(source, [isAlone, until, places = SoundPlace()](
                               GstPad* pad, PassingBuffer& passing) mutable {
      PlaceSound(pad, passing, isAlone, until->Get(), places);
      return GST_PAD_PROBE_OK;
    });
  });
}

}  // namespace

void WaitForLateSound(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer) return;
  const bool isAlone = mixer->numsinkpads <= 1;
  g_object_set(mixer.get(), "latency", isAlone ? kLatestSound : kLateSound,
               nullptr);
  PlaceSoundOf(mixer.get(), isAlone);
}

}  // namespace linux_capture
