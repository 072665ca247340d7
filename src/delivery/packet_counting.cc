#include "delivery/packet_counting.h"

#include <cstddef>

#include "state/counters.h"

namespace linux_capture {

void CountBranchPicture(std::uint64_t nowMs, VideoBranchStats& stats) {
  ++stats.rawFrames;
  if (stats.firstFrameAtMs == 0) stats.firstFrameAtMs = nowMs;
  stats.lastFrameAtMs = nowMs;
}

void CountBranchPacket(const VideoPacket& packet, VideoBranchStats& stats) {
  ++stats.encodedFrames;
  stats.bytesEncoded += packet.payload.size();
  // A negative index is a large one here.
  const auto layer = static_cast<std::size_t>(packet.temporalIndex);
  if (layer < stats.temporalFrameCounts.size()) {
    ++stats.temporalFrameCounts[layer];
  }
  if (packet.isKeyFrame) ++stats.keyframes;
}

void CountVideoPacket(const VideoPacket& packet) {
  g_framesCaptured.Add(1);
  g_framesEncoded.Add(1);
  (packet.isKeyFrame ? g_keyframesEncoded : g_deltaFramesEncoded).Add(1);
  if (packet.branchIndex == 0) {
    g_width.Set(packet.width);
    g_height.Set(packet.height);
  }
  if (packet.timestampUs != 0) {
    g_firstVideoTimestampUs.SetIfZero(packet.timestampUs);
    g_lastVideoTimestampUs.Set(packet.timestampUs);
  }
}

}  // namespace linux_capture
