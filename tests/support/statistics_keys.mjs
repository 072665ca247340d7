/** The keys of every object in a statistics report, in the report's order. */
const words = (text) => Object.freeze(text.trim().split(/\s+/));

export const topLevelKeys = words(`
  backend capturing isCapturing sourceBackend sourceKind sourceHandle
  framesCaptured framesEncoded keyframesEncoded deltaFramesEncoded
  audioSamplesCaptured audioPacketsCaptured audioCount
  audioNonZeroSamplesCaptured audioAbsoluteSampleSum audioPeakAbsoluteSample
  audioClippedSamplesCaptured audioSilentPackets audioConsecutiveSilentPackets
  audioMaxConsecutiveSilentPackets audioLastPacketAtMs audioLastNonZeroAtMs
  audioLastNonZeroSamples audioLastAbsoluteSampleSum
  audioLastPeakAbsoluteSample audioLastClippedSamples
  sessionClockOriginUs firstVideoTimestampUs lastVideoTimestampUs
  firstAudioTimestampUs lastAudioTimestampUs
  firstAudioVideoOffsetUs audioVideoDriftUs
  videoBridgeQueuedPackets videoBridgeDroppedPackets
  videoBridgeSuppressedDeltaPackets audioBridgeQueuedPackets
  audioBridgeDroppedPackets
  audioSourceStats width height
  selectedEncoder selectedProvider encoderProvider providerTier
  isHardwareEncoder isDegradedCpuFallback hardwareTransportSatisfied
  hardwareParityMode hardwareSimulcastFpsSatisfied dmaBufNegotiated
  sourceMemoryFeature encoderInputMemoryFeature temporalMetadataSource
  cpuMappedFrameCount cpuMappedVideoFrames
  temporalLayerCount gopSize bFrames enableCABAC lowLatencyMode
  videoPipeline audioPipeline videoCaps audioCaps
  gstBusErrors gstBusEos lastGstBusError openH264Errors lastOpenH264Error
  providerProbeReport branchStats portal x11 linuxAudio
`);

export const providerProbeKeys = words(`
  provider encoder providerTier probed available selectableForTransport
  selectableForSimulcastFps isHardwareEncoder temporalSvcSupported
  temporalLayerCapacity gpuMemorySupported dmaBufSupported memoryFeature
  hardwareParityMode temporalMetadataSource rejectionReason
`);

/** One branch of the software path: no keys of the hardware list. */
export const softwareBranchKeys = words(`
  branchIndex width height configuredFps targetFps observedFps
  droppedFrames duplicateFrames rawFrames encodedFrames keyframes bytesEncoded
  bridgeQueuedPackets bridgeDroppedPackets bridgeSuppressedDeltaPackets
  bridgeKeyframeRecoveryRequests byteRate firstFrameAtMs lastFrameAtMs
  temporalFrameCounts temporalFrameDeltas allTemporalLayersEncoded
`);

export const portalKeys = words(`
  pipeWireFd pipeWireNodeId pipeWireSerial sourceType label streamId mappingId
  restoreTokenUsed restoreTokenUpdated streamSize
`);

/** The keys of a video packet. */
export const packetKeys = words(`
  type payload timestamp timestampUs rawPtsUs rawDtsUs durationUs enqueuedAtMs
  width height branchIndex temporalIndex isKeyFrame
`);
