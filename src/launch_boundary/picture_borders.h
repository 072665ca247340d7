#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BORDERS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BORDERS_H_

#include <gst/video/video.h>

#include <optional>

namespace linux_capture {

// Where videoscale puts a picture in a frame of another shape.
struct PictureArea {
  gint left = 0;
  gint top = 0;
  gint width = 0;
  gint height = 0;
};

// The area of what is scaled from `in` to `out`, where the frame has borders
// that have to be blackened: videoscale gives all of them a luma of 16, which
// is black in limited range alone, and a dark grey in a stream that says it has
// the full range.
std::optional<PictureArea> AreaBetweenGreyBorders(const GstVideoInfo& in,
                                                  const GstVideoInfo& out);

// Blackens what lies around the area in a picture of that format.
void BlackenBorders(GstBuffer* buffer, const GstVideoInfo& info,
                    const PictureArea& area);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_BORDERS_H_
