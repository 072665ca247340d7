#include "addon/stats_report_js.h"

#include "state/counters.h"

namespace linux_capture {
namespace {

JsObject SizeToJs(napi_env env, std::int32_t width, std::int32_t height) {
  JsObject size(env);
  size.Number("width", width).Number("height", height);
  return size;
}

JsObject AudioSourceStatsToJs(napi_env env, const AudioSourceStats& stats) {
  JsObject object(env);
  AddAudioSourceIdentity(object, stats.sourceIndex, stats.metadata);
  object.Number("samplesCaptured", stats.samplesCaptured)
      .Number("packetsCaptured", stats.packetsCaptured)
      .Number("nonZeroSamplesCaptured", stats.nonZeroSamplesCaptured)
      .Number("absoluteSampleSum", stats.absoluteSampleSum)
      .Number("peakAbsoluteSample", stats.peakAbsoluteSample)
      .Number("clippedSamplesCaptured", stats.clippedSamplesCaptured)
      .Number("silentPackets", stats.silentPackets)
      .Number("consecutiveSilentPackets", stats.consecutiveSilentPackets)
      .Number("maxConsecutiveSilentPackets", stats.maxConsecutiveSilentPackets)
      .Number("lastPacketAtMs", stats.lastPacketAtMs)
      .Number("lastNonZeroAtMs", stats.lastNonZeroAtMs)
      .Number("lastNonZeroSamples", stats.lastNonZeroSamples)
      .Number("lastAbsoluteSampleSum", stats.lastAbsoluteSampleSum)
      .Number("lastPeakAbsoluteSample", stats.lastPeakAbsoluteSample)
      .Number("lastClippedSamples", stats.lastClippedSamples)
      .Text("caps", stats.caps);
  return object;
}

JsObject ProviderToJs(napi_env env, const ProviderProbeReport& report) {
  JsObject object(env);
  object.Text("provider", report.provider)
      .Text("encoder", report.encoder)
      .Text("providerTier", report.providerTier)
      .Bool("probed", report.probed)
      .Bool("available", report.available)
      .Bool("selectableForTransport", report.selectableForTransport)
      .Bool("selectableForSimulcastFps", report.selectableForSimulcastFps)
      .Bool("isHardwareEncoder", report.isHardwareEncoder)
      .Bool("temporalSvcSupported", report.temporalSvcSupported)
      .Number("temporalLayerCapacity", report.temporalLayerCapacity)
      .Bool("gpuMemorySupported", report.gpuMemorySupported)
      .Bool("dmaBufSupported", report.dmaBufSupported)
      .Text("memoryFeature", report.memoryFeature)
      .Text("hardwareParityMode", report.hardwareParityMode)
      .Text("temporalMetadataSource", report.temporalMetadataSource)
      .Text("rejectionReason", report.rejectionReason);
  return object;
}

JsObject BranchToJs(napi_env env, const BranchReport& report) {
  const VideoBranchStats& stats = report.stats;
  JsObject object(env);
  object.Number("branchIndex", stats.branchIndex)
      .Number("width", stats.width)
      .Number("height", stats.height)
      .Number("configuredFps", stats.fps)
      .Number("targetFps", stats.fps);
  if (report.isHardware) {
    object.Number("appliedBitrate", stats.appliedBitrate)
        .Number("appliedMaxBitrate", stats.appliedMaxBitrate);
  }
  object.Number("observedFps", report.observedFps)
      .Number("droppedFrames", stats.droppedFrames)
      .Number("duplicateFrames", stats.duplicateFrames)
      .Number("rawFrames", stats.rawFrames)
      .Number("encodedFrames", stats.encodedFrames)
      .Number("keyframes", stats.keyframes)
      .Number("bytesEncoded", stats.bytesEncoded)
      .Number("bridgeQueuedPackets", stats.bridgeQueuedPackets)
      .Number("bridgeDroppedPackets", stats.bridgeDroppedPackets)
      .Number("bridgeSuppressedDeltaPackets",
              stats.bridgeSuppressedDeltaPackets)
      .Number("bridgeKeyframeRecoveryRequests",
              stats.bridgeKeyframeRecoveryRequests);
  if (report.isHardware) {
    object
        .Number("hardwareKeyframeRequestsAccepted",
                stats.hardwareKeyframeRequestsAccepted)
        .Number("hardwareKeyframeRequestsFailed",
                stats.hardwareKeyframeRequestsFailed)
        .Number("lastHardwareKeyframeRequestAtMs",
                stats.lastHardwareKeyframeRequestAtMs)
        .Number("lastHardwareKeyframeAtMs", stats.lastHardwareKeyframeAtMs)
        .Number("maxHardwareKeyframeRecoveryLatencyMs",
                stats.maxHardwareKeyframeRecoveryLatencyMs);
  }
  JsObject deltas(env);
  deltas.Number("t0", stats.temporalFrameCounts[0])
      .Number("t1", stats.temporalFrameCounts[1])
      .Number("t2", stats.temporalFrameCounts[2]);
  object.Number("byteRate", report.byteRate)
      .Number("firstFrameAtMs", stats.firstFrameAtMs)
      .Number("lastFrameAtMs", stats.lastFrameAtMs)
      .Numbers("temporalFrameCounts", stats.temporalFrameCounts)
      .Object("temporalFrameDeltas", deltas)
      .Bool("allTemporalLayersEncoded", report.allTemporalLayersEncoded);
  return object;
}

JsObject PortalToJs(napi_env env, const CaptureConfig& config) {
  JsObject object(env);
  object.Number("pipeWireFd", config.pipeWireFd)
      .Number("pipeWireNodeId", config.pipeWireNodeId)
      .Number("pipeWireSerial", config.pipeWireSerial)
      .Number("sourceType", config.sourceType)
      .Text("label", config.label)
      .Text("streamId", config.streamId)
      .Text("mappingId", config.mappingId)
      .Bool("restoreTokenUsed", config.restoreTokenUsed)
      .Bool("restoreTokenUpdated", config.restoreTokenUpdated)
      .Object("streamSize",
              SizeToJs(env, config.sourceWidth, config.sourceHeight));
  return object;
}

JsObject X11ToJs(napi_env env, const CaptureConfig& config) {
  JsObject object(env);
  object.Number("windowXid", config.windowHandle).Text("kind", config.kind);
  if (config.kind == "monitor") {
    JsObject geometry(env);
    geometry.Number("x", config.x)
        .Number("y", config.y)
        .Number("width", config.sourceWidth)
        .Number("height", config.sourceHeight);
    object.Object("geometry", geometry);
  }
  return object;
}

JsObject LinuxAudioToJs(napi_env env, const CaptureConfig& config) {
  JsObject object(env);
  std::uint64_t index = 0;
  object.Text("mode", config.audioMode)
      .Numbers("pipeWireTargetObjects", config.pipeWireTargetObjects)
      .Array("sources", config.audioSources,
             [&index](napi_env each, const AudioSourceMetadata& metadata) {
               JsObject source(each);
               AddAudioSourceIdentity(source, index++, metadata);
               return source;
             });
  return object;
}

void AddCounters(JsObject& object, const StatsSnapshot& snapshot,
                 CounterSection section) {
  for (std::size_t i = 0; i < kCounters.size(); ++i) {
    if (kCounters[i].section != section) continue;
    object.Number(kCounters[i].key, snapshot.counters[i]);
  }
}

void AddAllCounters(JsObject& object, const StatsSnapshot& snapshot) {
  AddCounters(object, snapshot, CounterSection::kVideo);
  AddCounters(object, snapshot, CounterSection::kAudioAmount);
  object.Number("audioCount", snapshot.Of(g_audioSamplesCaptured));
  AddCounters(object, snapshot, CounterSection::kAudio);
  AddCounters(object, snapshot, CounterSection::kClocks);
  object.Number("firstAudioVideoOffsetUs", snapshot.firstAudioVideoOffsetUs)
      .Number("audioVideoDriftUs", snapshot.audioVideoDriftUs);
  AddCounters(object, snapshot, CounterSection::kBridge);
}

void AddEncoderSelection(JsObject& object, const StatsSnapshot& snapshot) {
  const EncoderSelection& selection = snapshot.selection;
  object.Text("selectedEncoder", snapshot.selectedEncoder)
      .Text("selectedProvider", selection.selectedProvider)
      .Text("encoderProvider", selection.encoderProvider)
      .Text("providerTier", selection.providerTier)
      .Bool("isHardwareEncoder", selection.isHardwareEncoder)
      .Bool("isDegradedCpuFallback", selection.isDegradedCpuFallback)
      .Bool("hardwareTransportSatisfied", selection.hardwareTransportSatisfied)
      .Text("hardwareParityMode", selection.hardwareParityMode)
      .Bool("hardwareSimulcastFpsSatisfied",
            selection.hardwareSimulcastFpsSatisfied)
      .Bool("dmaBufNegotiated", selection.dmaBufNegotiated)
      .Text("sourceMemoryFeature", selection.sourceMemoryFeature)
      .Text("encoderInputMemoryFeature", selection.encoderInputMemoryFeature)
      .Text("temporalMetadataSource", selection.temporalMetadataSource);
}

}  // namespace

void AddAudioSourceIdentity(JsObject& object, std::uint64_t sourceIndex,
                            const AudioSourceMetadata& metadata) {
  object.Number("sourceIndex", sourceIndex)
      .Number("pipeWireTargetObject", metadata.pipeWireTargetObject)
      .Number("pipeWireNodeId", metadata.pipeWireNodeId)
      .Number("pipeWireObjectSerial", metadata.pipeWireObjectSerial)
      .Number("processId", metadata.processId)
      .Text("applicationName", metadata.applicationName)
      .Text("processBinary", metadata.processBinary)
      .Text("nodeName", metadata.nodeName)
      .Text("mediaName", metadata.mediaName)
      .Text("targetObject", metadata.targetObject);
}

JsObject StatsToJs(napi_env env, const StatsSnapshot& snapshot) {
  const CaptureConfig& config = snapshot.config;
  const bool capturing = snapshot.isCapturing;
  JsObject object(env);
  object.Text("backend", "linux")
      .Bool("capturing", capturing)
      .Bool("isCapturing", capturing)
      .Text("sourceBackend", config.backend)
      .Text("sourceKind", config.kind)
      .Number("sourceHandle", config.windowHandle);
  AddAllCounters(object, snapshot);
  object.Array("audioSourceStats", snapshot.audioSources, AudioSourceStatsToJs)
      .Number("width", snapshot.width)
      .Number("height", snapshot.height);
  AddEncoderSelection(object, snapshot);
  object.Number("cpuMappedFrameCount", snapshot.Of(g_cpuMappedVideoFrames));
  AddCounters(object, snapshot, CounterSection::kMapped);
  object.Number("temporalLayerCount", config.temporalLayerCount)
      .Number("gopSize", config.gopSize)
      .Number("bFrames", config.bFrames)
      .Bool("enableCABAC", config.enableCABAC)
      .Bool("lowLatencyMode", config.lowLatencyMode)
      .Text("videoPipeline", snapshot.videoPipeline)
      .Text("audioPipeline", snapshot.audioPipeline)
      .Text("videoCaps", snapshot.videoCaps)
      .Text("audioCaps", snapshot.audioCaps);
  AddCounters(object, snapshot, CounterSection::kBus);
  object.Text("lastGstBusError", snapshot.lastGstBusError);
  AddCounters(object, snapshot, CounterSection::kEncoder);
  object.Text("lastOpenH264Error", snapshot.lastOpenH264Error)
      .Array("providerProbeReport", snapshot.providers, ProviderToJs)
      .Array("branchStats", snapshot.branches, BranchToJs)
      .Object("portal", PortalToJs(env, config))
      .Object("x11", X11ToJs(env, config))
      .Object("linuxAudio", LinuxAudioToJs(env, config));
  object.HiddenText("interruption", snapshot.interruption == nullptr
                                        ? ""
                                        : snapshot.interruption);
  return object;
}

}  // namespace linux_capture
