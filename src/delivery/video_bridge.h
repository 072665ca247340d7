#ifndef LINUX_CAPTURE_DELIVERY_VIDEO_BRIDGE_H_
#define LINUX_CAPTURE_DELIVERY_VIDEO_BRIDGE_H_

#include <memory>

#include "delivery/video_packet.h"

namespace linux_capture {

// Hands one access unit to the fragment callback without ever blocking, from
// any streaming thread. When the queue refuses a packet, the branch's delta
// packets are withheld until its next keyframe, so that JavaScript never
// receives a picture whose reference was lost.
void EmitVideoPacket(std::unique_ptr<VideoPacket> packet);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_VIDEO_BRIDGE_H_
