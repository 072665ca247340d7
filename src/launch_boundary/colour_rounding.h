#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_COLOUR_ROUNDING_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_COLOUR_ROUNDING_H_

#include <gst/gst.h>
#include <gst/video/video.h>

namespace linux_capture {

// What has to be added to each plane of a converted picture to make up for a
// conversion that rounds down, in steps of 8-bit samples.
struct PlaneCorrection {
  int y = 0;
  int u = 0;
  int v = 0;

  bool operator==(const PlaneCorrection&) const = default;
};

// Measures the installed GStreamer's own conversion from `in` to `out` on a
// few hundred known colours. Nothing to correct unless it goes from 8-bit RGB
// to full-range BT.709 I420.
PlaneCorrection MeasureConversionRounding(const GstVideoInfo& in,
                                          const GstVideoInfo& out);

// Adds the correction to every sample of an I420 frame mapped for writing,
// saturating.
void ApplyPlaneCorrection(const PlaneCorrection& correction,
                          GstVideoFrame& frame);

// Corrects what the launched videoconvert delivers, before it is split into
// branches.
void CorrectConversionRounding(GstElement* pipeline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_COLOUR_ROUNDING_H_
