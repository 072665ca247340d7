import addon = require('../../index');

const capture: addon.CaptureOptions = {
  width: 1280,
  height: 720,
  fps: 30,
  bitrate: 4_000_000,
  minBitrate: 500_000,
  maxBitrate: 6_000_000,
  temporalLayerCount: 3,
  gopSize: 60,
  bFrames: 0,
  enableCABAC: false,
  lowLatencyMode: true,
  encoderRequirement: 'allow-degraded',
  topology: { mode: 'direct', branches: [] },
};
const monitor = {
  backend: 'x11',
  kind: 'monitor',
  handle: null,
  geometry: { x: 0, y: 0, width: 1920, height: 1080 },
} as const;
const secondary = { width: 640, height: 360, fps: 15, bitrate: 1_000_000 };
const silent = { mode: 'none' } as const;

// Every kind of source is accepted.
addon.captureSetup({ source: monitor, capture, audio: silent });
addon.captureSetup({
  source: { backend: 'x11', kind: 'window', handle: 0x400003 },
  capture,
  audio: silent,
});
addon.captureSetup({
  source: { backend: 'portal', kind: 'monitor' },
  portal: {
    pipeWireFd: 42,
    pipeWireNodeId: 77,
    sourceType: 1,
    streamSize: { width: 1920, height: 1080 },
    label: 'screen',
    pipeWireSerial: 1234,
    restoreTokenUsed: false,
  },
  capture,
  audio: silent,
});

// Every kind of sound is accepted with its own targets.
addon.captureSetup({
  source: monitor,
  capture,
  audio: { mode: 'auto' },
  linuxAudio: { mode: 'system', pipeWireTargetObjects: [52] },
});
addon.captureSetup({
  source: monitor,
  capture,
  audio: { mode: 'process' },
  linuxAudio: {
    mode: 'process',
    pipeWireTargetObjects: [61, 63],
    pipeWireAudioSources: [{ processId: 100 }, { applicationName: 'Player' }],
  },
});

// Up to two secondary branches are accepted.
addon.captureSetup({
  source: monitor,
  capture: {
    ...capture,
    topology: { mode: 'topology', branches: [secondary, secondary] },
  },
  audio: silent,
});

// @ts-expect-error the request is required
addon.captureSetup();

// @ts-expect-error the sound has to be declared, if only as none
addon.captureSetup({ source: monitor, capture });

addon.captureSetup({
  // @ts-expect-error a monitor has a geometry
  source: { backend: 'x11', kind: 'monitor', handle: null },
  capture,
  audio: silent,
});

addon.captureSetup({
  // @ts-expect-error a window has a number for a handle
  source: { backend: 'x11', kind: 'window', handle: null },
  capture,
  audio: silent,
});

// @ts-expect-error a portal source needs its stream
addon.captureSetup({
  source: { backend: 'portal', kind: 'window' },
  capture,
  audio: silent,
});

addon.captureSetup({
  // @ts-expect-error there is no such backend
  source: { backend: 'wayland', kind: 'window' },
  capture,
  audio: silent,
});

// @ts-expect-error sound other than none needs its targets
addon.captureSetup({ source: monitor, capture, audio: { mode: 'system' } });

addon.captureSetup({
  source: monitor,
  capture,
  audio: { mode: 'process' },
  // @ts-expect-error the two modes have to agree
  linuxAudio: { mode: 'system', pipeWireTargetObjects: [61] },
});

const tooMany: addon.BranchTopology = {
  mode: 'topology',
  // @ts-expect-error there are two secondary branches at most
  branches: [secondary, secondary, secondary],
};
void tooMany;

const noRate: addon.BranchTopology = {
  mode: 'topology',
  // @ts-expect-error a branch has a rate
  branches: [{ width: 640, height: 360, bitrate: 1_000_000 }],
};
void noRate;

const unknownEncoder: addon.CaptureOptions = {
  ...capture,
  // @ts-expect-error there is no such requirement
  encoderRequirement: 'software',
};
void unknownEncoder;
