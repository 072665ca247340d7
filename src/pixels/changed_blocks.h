#ifndef LINUX_CAPTURE_PIXELS_CHANGED_BLOCKS_H_
#define LINUX_CAPTURE_PIXELS_CHANGED_BLOCKS_H_

#include <gst/video/video.h>

#include <cstdint>
#include <vector>

namespace linux_capture {

// Marks the macroblocks (16x16 luma samples, row by row) in which two I420
// pictures of one size differ: one entry for each, 1 where they do. The list is
// the caller's so that it is allocated once. Returns whether any does.
bool MarkChangedBlocks(const GstVideoFrame& before, const GstVideoFrame& now,
                       std::vector<std::uint8_t>& changed);

// Moves one chroma sample of every marked macroblock by one step.
void TouchBlocks(const std::vector<std::uint8_t>& marked,
                 GstVideoFrame& picture);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_CHANGED_BLOCKS_H_
