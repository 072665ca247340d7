/** Capture values small enough for two busy cores; a test overrides some. */
export const smallCapture = Object.freeze({
  width: 320,
  height: 180,
  fps: 30,
  bitrate: 2_000_000,
  minBitrate: 200_000,
  maxBitrate: 4_000_000,
  temporalLayerCount: 3,
  gopSize: 60,
  bFrames: 0,
  enableCABAC: false,
  lowLatencyMode: true,
  encoderRequirement: 'allow-degraded',
});

function captureOf({ branches, ...values }) {
  return {
    ...smallCapture,
    ...values,
    topology: branches === undefined
      ? { mode: 'direct', branches: [] }
      : { mode: 'topology', branches },
  };
}

/** A request for a rectangle of the screen. */
export function monitorRequest({
  x = 0, y = 0, sourceWidth = 640, sourceHeight = 360, ...capture
} = {}) {
  return {
    source: {
      backend: 'x11',
      kind: 'monitor',
      handle: null,
      geometry: { x, y, width: sourceWidth, height: sourceHeight },
    },
    capture: captureOf(capture),
    audio: { mode: 'none' },
  };
}

/** A request for one window. */
export function windowRequest({ handle, ...capture }) {
  return {
    source: { backend: 'x11', kind: 'window', handle },
    capture: captureOf(capture),
    audio: { mode: 'none' },
  };
}

/** The same request with the sound of these applications. */
export function withProcessAudio(request, pipeWireTargetObjects) {
  return {
    ...request,
    audio: { mode: 'process' },
    linuxAudio: { mode: 'process', pipeWireTargetObjects },
  };
}
