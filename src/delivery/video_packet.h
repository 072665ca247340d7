#ifndef LINUX_CAPTURE_DELIVERY_VIDEO_PACKET_H_
#define LINUX_CAPTURE_DELIVERY_VIDEO_PACKET_H_

#include <cstdint>
#include <vector>

namespace linux_capture {

// One H.264 access unit on its way to JavaScript.
struct VideoPacket {
  std::vector<std::uint8_t> payload;  // Annex B
  std::uint64_t timestampUs = 0;      // session clock
  std::uint64_t rawPtsUs = 0;         // 0 = none
  std::uint64_t rawDtsUs = 0;         // 0 = none
  std::uint64_t durationUs = 0;
  std::uint64_t enqueuedAtMs = 0;  // wall clock
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t branchIndex = 0;
  std::int32_t temporalIndex = 0;
  bool isKeyFrame = false;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_VIDEO_PACKET_H_
