'use strict';

const fullScale = 32_768;

function videoStats(raw, queues) {
  return {
    layers: raw.temporalLayerCount,
    branches: raw.branchStats.map((branch) => ({
      branch: branch.branchIndex,
      width: branch.width,
      height: branch.height,
      targetFps: branch.targetFps,
      fps: branch.observedFps,
      bitsPerSecond: branch.byteRate * 8,
      targetBitsPerSecond: branch.appliedBitrate ?? null,
      frames: branch.encodedFrames,
      keyframes: branch.keyframes,
      bytes: branch.bytesEncoded,
      framesPerLayer: branch.temporalFrameCounts.slice(0, 3),
      // Lost because JavaScript did not run for too long.
      droppedByModule: branch.bridgeDroppedPackets +
        branch.bridgeSuppressedDeltaPackets,
      reader: queues[branch.branchIndex].counters(),
    })),
    firstTimestampUs: raw.firstVideoTimestampUs,
    lastTimestampUs: raw.lastVideoTimestampUs,
  };
}

function audioStats(raw, queue) {
  return {
    mode: raw.linuxAudio.mode,
    packets: raw.audioPacketsCaptured,
    samples: raw.audioSamplesCaptured,
    peak: raw.audioPeakAbsoluteSample / fullScale,
    clippedSamples: raw.audioClippedSamplesCaptured,
    silentPackets: raw.audioSilentPackets,
    droppedByModule: raw.audioBridgeDroppedPackets,
    reader: queue.counters(),
    sources: raw.audioSourceStats.map((source) => ({
      targetObject: source.pipeWireTargetObject,
      processId: source.processId,
      applicationName: source.applicationName,
      processBinary: source.processBinary,
      nodeName: source.nodeName,
      mediaName: source.mediaName,
      samples: source.samplesCaptured,
      peak: source.peakAbsoluteSample / fullScale,
      lastPeak: source.lastPeakAbsoluteSample / fullScale,
      magnitudeSum: source.absoluteSampleSum / fullScale,
    })),
    firstTimestampUs: raw.firstAudioTimestampUs,
    lastTimestampUs: raw.lastAudioTimestampUs,
  };
}

/** A tidy copy of the native statistics, with what the readers did. */
function tidyStats(raw, { videoQueues, audioQueue, isActive }) {
  return {
    isActive,
    encoder: {
      name: raw.selectedEncoder,
      isHardware: raw.isHardwareEncoder,
    },
    video: videoStats(raw, videoQueues),
    audio: audioQueue === null ? null : audioStats(raw, audioQueue),
    sync: {
      clockOriginUs: raw.sessionClockOriginUs,
      firstAudioVideoOffsetUs: raw.firstAudioVideoOffsetUs,
      audioVideoDriftUs: raw.audioVideoDriftUs,
    },
    errors: {
      pipeline: raw.gstBusErrors,
      lastPipelineError: raw.lastGstBusError,
      encoder: raw.openH264Errors,
      lastEncoderError: raw.lastOpenH264Error,
    },
  };
}

module.exports = { tidyStats };
