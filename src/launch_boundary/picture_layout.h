#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_LAYOUT_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_LAYOUT_H_

#include <gst/video/video.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace linux_capture {

// Where a plane lies in a buffer, in bytes. The rows of a bottom-up picture
// have a negative distance.
struct PlaneLayout {
  std::ptrdiff_t offset = 0;  // of the upper row
  std::ptrdiff_t stride = 0;
};

using PictureLayout = std::array<PlaneLayout, GST_VIDEO_MAX_PLANES>;

// Where the picture that `negotiated` promises lies in `buffer`. What the
// buffer says of itself may differ from the caps: a source that became smaller
// repeats its last picture in the old size. Empty where the buffer holds no
// such picture: it is of another format or smaller, or its planes reach beyond
// its memory.
std::optional<PictureLayout> LayoutOf(GstBuffer* buffer,
                                      const GstVideoInfo& negotiated);

// What the buffer is and what it should be, for the log.
std::string DescribeMisfit(GstBuffer* buffer, const GstVideoInfo& negotiated);

// Writes a warning into GStreamer's log for a picture that is dropped, and a
// stage line for the first one of the object's life. Only the object's
// streaming thread calls it.
void ReportDroppedPicture(GstObject* object, GstBuffer* buffer,
                          const GstVideoInfo& negotiated);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PICTURE_LAYOUT_H_
