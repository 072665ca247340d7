#include "video_software/raw_frame_encoding.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/clock.h"
#include "base/coded_error.h"
#include "base/gst_handles.h"
#include "delivery/lifecycle.h"
#include "delivery/nal_scan.h"
#include "delivery/packet_counting.h"
#include "delivery/video_bridge.h"
#include "launch_boundary/stale_blocks.h"
#include "state/counters.h"
#include "video_software/access_unit.h"

namespace linux_capture {
namespace {

SSourcePicture PictureOf(const GstVideoFrame& frame,
                         std::uint64_t timestampUs) {
  SSourcePicture picture{};
  picture.iColorFormat = videoFormatI420;
  for (guint plane = 0; plane < 3; ++plane) {
    picture.iStride[plane] = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane);
    // The encoder reads the planes where they are and never writes them.
    picture.pData[plane] =
        static_cast<unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, plane));
  }
  picture.iPicWidth = GST_VIDEO_FRAME_WIDTH(&frame);
  picture.iPicHeight = GST_VIDEO_FRAME_HEIGHT(&frame);
  picture.uiTimeStamp = static_cast<long long>(timestampUs / 1000);
  return picture;
}

void ReportEncoderFailure(const char* message) {
  CountOpenH264Error(message);
  EmitError(message, error_code::kEncoderFailed, g_width.Get(), g_height.Get());
}

// Null where the caps describe no picture. Read once, as the text of the caps
// is (SampleCapsString): each picture of a stream has the same ones.
const GstVideoInfo* PictureInfoOf(GstCaps* caps) {
  thread_local GstCapsPtr seen;
  thread_local GstVideoInfo info;
  if (caps == nullptr) return nullptr;
  if (caps == seen.get()) return &info;
  seen.reset();
  gst_video_info_init(&info);
  if (gst_video_info_from_caps(&info, caps) == FALSE) return nullptr;
  seen.reset(gst_caps_ref(caps));
  return &info;
}

GstFlowReturn EncodeSample(GstAppSink* sink, const GstSamplePtr& sample,
                           const VideoSinkContext* context) {
  GstBuffer* buffer = gst_sample_get_buffer(sample.get());
  const GstVideoInfo* info = PictureInfoOf(gst_sample_get_caps(sample.get()));
  if (buffer == nullptr || info == nullptr) return GST_FLOW_ERROR;
  RememberVideoCaps(sample.get());
  const MappedVideoFrame frame(*info, buffer, GST_MAP_READ);
  if (!frame.ok()) return GST_FLOW_ERROR;
  g_cpuMappedVideoFrames.Add(1);

  const std::int32_t branchIndex =
      context != nullptr ? context->branchIndex : 0;
  const std::int32_t fps =
      context != nullptr ? context->fps : g_activeFps.Get();
  const BufferTiming timing =
      ReadBufferTiming(buffer, context != nullptr ? context->pipeline : nullptr,
                       FrameDurationUs(fps));
  try {
    NoteTemporalIndex(GST_ELEMENT(sink), buffer,
                      EncodeFrameOfBranch(frame.get(), timing, branchIndex,
                                          FindOpenH264Branch(branchIndex)));
  } catch (const CodedError& error) {
    ReportEncoderFailure(error.what());
    return GST_FLOW_ERROR;
  }
  return GST_FLOW_OK;
}

}  // namespace

std::int32_t EncodeFrameOfBranch(const GstVideoFrame& frame,
                                 const BufferTiming& timing,
                                 std::int32_t branchIndex,
                                 OpenH264BranchEncoder* record) {
  if (record == nullptr) {
    throw CodedError(
        error_code::kEncoderFailed,
        "OpenH264 branch " + std::to_string(branchIndex) + " not found");
  }
  const MutexLock lock(record->mutex);
  if (!record->encoder) {
    throw CodedError(error_code::kEncoderFailed,
                     "OpenH264 branch encoder is not initialized");
  }
  const SSourcePicture picture = PictureOf(frame, timing.timestampUs);
  SFrameBSInfo info{};
  const int result = record->encoder->EncodeFrame(&picture, &info);
  if (result != 0) {
    throw CodedError(error_code::kEncoderFailed,
                     "OpenH264 EncodeFrame failed for branch " +
                         std::to_string(branchIndex) +
                         " result=" + std::to_string(result));
  }
  VideoBranchStats& stats = record->stats;
  const std::uint64_t nowMs = WallClockMs();
  CountBranchPicture(nowMs, stats);
  if (info.eFrameType == videoFrameTypeSkip) return kNoPacket;
  const AccessUnitSummary summary = SummariseAccessUnit(info);
  if (summary.size == 0) return kNoPacket;

  auto packet = std::make_unique<VideoPacket>();
  packet->payload = JoinAccessUnit(info, summary.size);
  packet->timestampUs = timing.timestampUs;
  packet->rawPtsUs = timing.ptsUs;
  packet->rawDtsUs = timing.dtsUs;
  packet->durationUs = timing.durationUs;
  packet->enqueuedAtMs = nowMs;
  packet->width = picture.iPicWidth;
  packet->height = picture.iPicHeight;
  packet->branchIndex = record->branch.branchIndex;
  packet->temporalIndex = summary.temporalIndex;
  // The bit stream's own layer id is looked at but not used: the packet
  // carries what the encoder reported.
  static_cast<void>(
      ScanTemporalId(packet->payload.data(), packet->payload.size()));
  packet->isKeyFrame = summary.isIdr || ContainsIdrNal(packet->payload.data(),
                                                       packet->payload.size());
  CountBranchPacket(*packet, stats);
  CountVideoPacket(*packet);
  EmitVideoPacket(std::move(packet));
  return summary.temporalIndex;
}

GstFlowReturn OnVideoSample(GstAppSink* sink, VideoSinkContext* context) {
  const GstSamplePtr sample(gst_app_sink_pull_sample(sink));
  if (!sample) return GST_FLOW_ERROR;
  if (context == nullptr) return EncodeSample(sink, sample, nullptr);
  const DeliveryGate::Pass pass(context->gate);
  return pass ? EncodeSample(sink, sample, context) : GST_FLOW_FLUSHING;
}

}  // namespace linux_capture
