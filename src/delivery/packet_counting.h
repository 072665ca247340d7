#ifndef LINUX_CAPTURE_DELIVERY_PACKET_COUNTING_H_
#define LINUX_CAPTURE_DELIVERY_PACKET_COUNTING_H_

#include <cstdint>

#include "delivery/video_packet.h"
#include "state/branch_stats.h"

namespace linux_capture {

// A picture has come to its branch. The caller guards `stats`.
void CountBranchPicture(std::uint64_t nowMs, VideoBranchStats& stats);

// It was encoded. The caller guards `stats`.
void CountBranchPacket(const VideoPacket& packet, VideoBranchStats& stats);

// The totals of all branches, which no mutex guards.
void CountVideoPacket(const VideoPacket& packet);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_PACKET_COUNTING_H_
