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

function audioStats(raw, queue, mode, kinds) {
  const otherKind = mode === 'system' ? 'system' : 'application';
  return {
    mode,
    packets: raw.audioPacketsCaptured,
    samples: raw.audioSamplesCaptured,
    peak: raw.audioPeakAbsoluteSample / fullScale,
    clippedSamples: raw.audioClippedSamplesCaptured,
    silentPackets: raw.audioSilentPackets,
    droppedByModule: raw.audioBridgeDroppedPackets,
    reader: queue.counters(),
    sources: raw.audioSourceStats.map((source) => ({
      targetObject: source.pipeWireTargetObject,
      kind: kinds.get(source.pipeWireTargetObject) ?? otherKind,
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
function tidyStats(raw,
  { videoQueues, audioQueue, isActive, audioMode, kinds }) {
  return {
    isActive,
    encoder: {
      name: raw.selectedEncoder,
      isHardware: raw.isHardwareEncoder,
    },
    video: videoStats(raw, videoQueues),
    audio: audioQueue === null ? null
      : audioStats(raw, audioQueue, audioMode, kinds),
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

/** `now` with the values of `keys` added up, of lists one by one. */
function withSums(earlier, now, keys) {
  const sums = keys.map((key) => [key, Array.isArray(now[key])
    ? now[key].map((value, index) => value + (earlier[key][index] ?? 0))
    : now[key] + earlier[key]]);
  return { ...now, ...Object.fromEntries(sums) };
}

function addVideo(earlier, now, offsetUs) {
  const branches = now.branches.map((branch, index) => withSums(
    earlier.branches[index], branch,
    ['frames', 'keyframes', 'bytes', 'framesPerLayer', 'droppedByModule']));
  const hasNew = now.branches.some(({ frames }) => frames > 0);
  return {
    ...now,
    branches,
    firstTimestampUs: earlier.firstTimestampUs,
    lastTimestampUs:
      hasNew ? now.lastTimestampUs + offsetUs : earlier.lastTimestampUs,
  };
}

function addAudio(earlier, now, offsetUs) {
  if (earlier === null || now === null) return now;
  const sources = now.sources.map((source) => {
    const before = earlier.sources.find(({ targetObject }) =>
      targetObject === source.targetObject);
    return before === undefined ? source : {
      ...withSums(before, source, ['samples', 'magnitudeSum']),
      peak: Math.max(before.peak, source.peak),
    };
  });
  return {
    ...withSums(earlier, now, ['packets', 'samples', 'clippedSamples',
      'silentPackets', 'droppedByModule']),
    peak: Math.max(earlier.peak, now.peak),
    sources,
    firstTimestampUs: earlier.firstTimestampUs,
    lastTimestampUs:
      now.packets > 0 ? now.lastTimestampUs + offsetUs
        : earlier.lastTimestampUs,
  };
}

/**
 * The statistics of a session whose native capture is not the first: `earlier`
 * are those of all before it, and its own times count from `offsetUs` on.
 */
function addStats(earlier, now, offsetUs) {
  const { errors } = now;
  return {
    ...now,
    video: addVideo(earlier.video, now.video, offsetUs),
    audio: addAudio(earlier.audio, now.audio, offsetUs),
    sync: { ...now.sync, clockOriginUs: earlier.sync.clockOriginUs },
    errors: {
      ...withSums(earlier.errors, errors, ['pipeline', 'encoder']),
      lastPipelineError:
        errors.lastPipelineError || earlier.errors.lastPipelineError,
      lastEncoderError:
        errors.lastEncoderError || earlier.errors.lastEncoderError,
    },
  };
}

module.exports = { addStats, tidyStats };
