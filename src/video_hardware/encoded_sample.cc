#include "video_hardware/encoded_sample.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "base/clock.h"
#include "base/gst_handles.h"
#include "delivery/buffer_timing.h"
#include "delivery/nal_scan.h"
#include "delivery/packet_counting.h"
#include "delivery/video_bridge.h"
#include "delivery/video_packet.h"
#include "state/branch_stats.h"
#include "state/counters.h"

namespace linux_capture {
namespace {

// The delta flag is trusted in one direction only: some encoders mark every
// buffer as a delta.
bool IsKeyframeBuffer(GstBuffer* buffer, const VideoPacket& packet) {
  return !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT) ||
         ContainsIdrNal(packet.payload.data(), packet.payload.size());
}

// The sample's access unit, copied, or null. The buffer goes back to the
// encoder before anything is done with the packet.
std::unique_ptr<VideoPacket> EncodedPacketOf(GstSamplePtr sample,
                                             const VideoSinkContext& context) {
  GstBuffer* buffer = gst_sample_get_buffer(sample.get());
  if (buffer == nullptr) return nullptr;
  RememberVideoCaps(sample.get());
  const ReadableBuffer bytes(buffer);
  if (!bytes.ok()) return nullptr;

  const std::uint64_t nowMs = WallClockMs();
  const BufferTiming timing =
      ReadBufferTiming(buffer, context.pipeline, FrameDurationUs(context.fps));
  auto packet = std::make_unique<VideoPacket>();
  packet->payload.assign(bytes.data(), bytes.data() + bytes.size());
  packet->timestampUs = timing.timestampUs;
  packet->rawPtsUs = timing.ptsUs;
  packet->rawDtsUs = timing.dtsUs;
  packet->durationUs = timing.durationUs;
  packet->enqueuedAtMs = nowMs;
  packet->width = context.width;
  packet->height = context.height;
  packet->branchIndex = context.branchIndex;
  packet->isKeyFrame = IsKeyframeBuffer(buffer, *packet);
  packet->temporalIndex =
      static_cast<std::int32_t>(ResolveHardwareSyntheticTemporalIndex(
          packet->branchIndex, packet->isKeyFrame));
  return packet;
}

void AnswerKeyframeRequest(std::uint64_t nowMs, VideoBranchStats& stats) {
  const std::uint64_t requestedAtMs = stats.lastHardwareKeyframeRequestAtMs;
  // A request newer than the last keyframe is answered by this one. The wall
  // clock may have been set back since.
  if (requestedAtMs > stats.lastHardwareKeyframeAtMs && nowMs > requestedAtMs) {
    stats.maxHardwareKeyframeRecoveryLatencyMs = std::max(
        stats.maxHardwareKeyframeRecoveryLatencyMs, nowMs - requestedAtMs);
  }
  stats.lastHardwareKeyframeAtMs = nowMs;
}

void CountEncodedPacket(const VideoPacket& packet) {
  const MutexLock lock(g_hardwareStatsMutex);
  CountVideoPacket(packet);
  VideoBranchStats* stats = FindHardwareBranchStats(packet.branchIndex);
  if (stats == nullptr) return;
  CountBranchPicture(packet.enqueuedAtMs, *stats);
  CountBranchPacket(packet, *stats);
  if (packet.isKeyFrame) AnswerKeyframeRequest(packet.enqueuedAtMs, *stats);
}

GstFlowReturn DeliverSample(GstSamplePtr sample,
                            const VideoSinkContext& context) {
  std::unique_ptr<VideoPacket> packet =
      EncodedPacketOf(std::move(sample), context);
  if (!packet) return GST_FLOW_ERROR;
  const MutexLock handOver(g_hardwareHandOverMutex);
  CountEncodedPacket(*packet);
  EmitVideoPacket(std::move(packet));
  return GST_FLOW_OK;
}

}  // namespace

std::uint32_t ResolveHardwareSyntheticTemporalIndex(std::int32_t branchIndex,
                                                    bool keyframe) {
  if (!IsTrackedBranch(branchIndex)) return 0;
  auto& sequence =
      g_hardwareSyntheticTemporalSequenceByBranch[static_cast<std::size_t>(
          branchIndex)];
  if (keyframe) {
    sequence.exchange(1);
    return 0;
  }
  return kL1T3TemporalPattern[sequence.fetch_add(1) & 3U];
}

GstFlowReturn OnEncodedVideoSample(GstAppSink* sink,
                                   VideoSinkContext* context) {
  GstSamplePtr sample(gst_app_sink_pull_sample(sink));
  if (!sample) return GST_FLOW_ERROR;
  if (context == nullptr) {
    VideoSinkContext fallback;
    fallback.width = g_width.Get();
    fallback.height = g_height.Get();
    fallback.fps = g_activeFps.Get();
    return DeliverSample(std::move(sample), fallback);
  }
  const DeliveryGate::Pass pass(context->gate);
  return pass ? DeliverSample(std::move(sample), *context) : GST_FLOW_FLUSHING;
}

}  // namespace linux_capture
