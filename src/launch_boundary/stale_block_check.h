#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCK_CHECK_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCK_CHECK_H_

#include <cstdint>
#include <functional>
#include <vector>

namespace linux_capture {

// An I420 picture of kCheckedSize by kCheckedSize samples.
using CheckedPicture = std::vector<std::uint8_t>;
inline constexpr int kCheckedSize = 128;

// Encodes pictures in three temporal layers for screens and gives them back as
// a player shows them; fewer where something failed.
using PictureCoder = std::function<std::vector<CheckedPicture>(
    const std::vector<CheckedPicture>&)>;

// OpenH264 up to 2.6.0 shows blocks of the picture before in pictures that
// follow one of temporal index 1: docs/openh264-stale-blocks.md. This shows a
// coder four pictures on which it does so, and tells whether any of them comes
// back wrong or not at all.
bool LeavesStaleBlocks(const PictureCoder& coder);

// The same of the installed OpenH264. The first call of a process takes some
// milliseconds.
bool InstalledOpenH264LeavesStaleBlocks();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_STALE_BLOCK_CHECK_H_
