#include "pixels/changed_blocks.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace linux_capture {
namespace {

constexpr int kLumaBlock = 16;
constexpr int kChromaBlock = 8;

const std::uint8_t* LineOf(const GstVideoFrame& frame, guint plane, int row) {
  return static_cast<const std::uint8_t*>(
             GST_VIDEO_FRAME_PLANE_DATA(&frame, plane)) +
         static_cast<std::ptrdiff_t>(row) *
             GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane);
}

int BlocksIn(int samples) { return (samples + kLumaBlock - 1) / kLumaBlock; }

// A length that the compiler knows makes the comparison one instruction or
// two; the last block of a line may be cut short.
template <int kBlock>
void MarkLine(const std::uint8_t* before, const std::uint8_t* now, int width,
              std::uint8_t* marks) {
  int x = 0;
  for (; x + kBlock <= width; x += kBlock) {
    *marks++ |= std::memcmp(before + x, now + x, kBlock) != 0 ? 1 : 0;
  }
  if (x < width) {
    *marks |= std::memcmp(before + x, now + x,
                          static_cast<std::size_t>(width - x)) != 0
                  ? 1
                  : 0;
  }
}

// Most lines of most pictures are the same throughout.
template <int kBlock>
void MarkPlane(const GstVideoFrame& before, const GstVideoFrame& now,
               guint plane, int blocksAcross, std::uint8_t* marks) {
  const int width = GST_VIDEO_FRAME_COMP_WIDTH(&now, plane);
  const int height = GST_VIDEO_FRAME_COMP_HEIGHT(&now, plane);
  for (int row = 0; row < height; ++row) {
    const std::uint8_t* old = LineOf(before, plane, row);
    const std::uint8_t* line = LineOf(now, plane, row);
    if (std::memcmp(old, line, static_cast<std::size_t>(width)) == 0) continue;
    MarkLine<kBlock>(
        old, line, width,
        marks + static_cast<std::ptrdiff_t>(row / kBlock) * blocksAcross);
  }
}

}  // namespace

bool MarkChangedBlocks(const GstVideoFrame& before, const GstVideoFrame& now,
                       std::vector<std::uint8_t>& changed) {
  const int across = BlocksIn(GST_VIDEO_FRAME_WIDTH(&now));
  const int down = BlocksIn(GST_VIDEO_FRAME_HEIGHT(&now));
  changed.assign(
      static_cast<std::size_t>(across) * static_cast<std::size_t>(down), 0);
  MarkPlane<kLumaBlock>(before, now, 0, across, changed.data());
  MarkPlane<kChromaBlock>(before, now, 1, across, changed.data());
  MarkPlane<kChromaBlock>(before, now, 2, across, changed.data());
  return std::find(changed.begin(), changed.end(), 1) != changed.end();
}

void TouchBlocks(const std::vector<std::uint8_t>& marked,
                 GstVideoFrame& picture) {
  const int across = BlocksIn(GST_VIDEO_FRAME_WIDTH(&picture));
  auto* chroma =
      static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&picture, 1));
  const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&picture, 1);
  for (std::size_t block = 0; block < marked.size(); ++block) {
    if (marked[block] == 0) continue;
    const int row = static_cast<int>(block) / across;
    const int column = static_cast<int>(block) % across;
    // The first sample of a block is there in one that is cut short too.
    chroma[static_cast<std::ptrdiff_t>(row) * kChromaBlock * stride +
           static_cast<std::ptrdiff_t>(column) * kChromaBlock] ^= 1;
  }
}

}  // namespace linux_capture
