/** Stands for a key that is not there at all. */
export const missing = Symbol('missing');

/** What a request fails with when nothing before its last key is wrong. */
export const lastRefusal = 'capture.topology.branches must be an array';

/**
 * What hardware encoding refuses once the whole request was read: at that
 * point getStats shows the parsed request, and nothing was launched yet.
 */
export const layersRefusal =
  'Linux hardware encoder remains flat NVENC simulcast; ' +
  'capture.temporalLayerCount must be 1';

/** One way of asking for each kind of source. */
const sources = {
  'x11 window': {
    source: { backend: 'x11', kind: 'window', handle: 4194307 },
  },
  'x11 monitor': {
    source: {
      backend: 'x11',
      kind: 'monitor',
      handle: null,
      geometry: { x: 10, y: 20, width: 1920, height: 1080 },
    },
  },
  portal: {
    source: { backend: 'portal', kind: 'monitor' },
    portal: {
      pipeWireFd: 42,
      pipeWireNodeId: 77,
      sourceType: 1,
      streamSize: { width: 2560, height: 1440 },
    },
  },
};

/** A complete request of two branches with sound, new at every call. */
export function completeRequest(sourceName) {
  return {
    ...structuredClone(sources[sourceName]),
    capture: {
      width: 1280,
      height: 720,
      fps: 30,
      bitrate: 8_000_000,
      minBitrate: 1_000_000,
      maxBitrate: 16_000_000,
      temporalLayerCount: 2,
      gopSize: 120,
      bFrames: 2,
      enableCABAC: true,
      lowLatencyMode: false,
      encoderRequirement: 'hardware',
      topology: {
        mode: 'topology',
        branches: [{ width: 640, height: 360, fps: 15, bitrate: 900_000 }],
      },
    },
    audio: { mode: 'process' },
    linuxAudio: { mode: 'process', pipeWireTargetObjects: [42] },
  };
}

/** Sets (or, with `missing`, removes) the property at a dotted path. */
export function change(request, path, value) {
  const keys = path.split('.');
  const last = keys.pop();
  let object = request;
  for (const key of keys) object = object[key];
  if (value === missing) delete object[last];
  else object[last] = value;
  return request;
}

/** A complete request with these dotted paths changed, in order. */
export function requestWith(sourceName, changes = {}) {
  const request = completeRequest(sourceName);
  for (const [path, value] of Object.entries(changes)) {
    change(request, path, value);
  }
  return request;
}

/** As requestWith, but what reaches the last check is refused there. */
export function lastRefusedWith(sourceName, changes = {}) {
  return change(requestWith(sourceName, changes),
    'capture.topology.branches', missing);
}

const mustBe = {
  object: (key) => `${key} must be an object`,
  string: (key) => `${key} must be a string`,
  number: (key) => `${key} must be a number`,
  boolean: (key) => `${key} must be a boolean`,
};

/** A required key of one type; the message names only the key itself. */
const required = (type, ...paths) => paths.map((path) => ({
  path,
  type,
  value: missing,
  message: mustBe[type](path.split('.').at(-1)),
}));

const refused = (path, value, message) => ({ path, value, message });

const containers = required('object', 'source', 'capture', 'audio');

const sourceHead = [
  ...required('string', 'source.backend'),
  refused('source.backend', 'wayland',
    'Linux native capture requires source.backend to be "portal" or "x11"'),
  ...required('string', 'source.kind'),
  refused('source.kind', 'region',
    'source.kind must be "window" or "monitor"'),
];

const captureValues = [
  ...required('number', 'capture.width', 'capture.height', 'capture.fps',
    'capture.bitrate', 'capture.minBitrate', 'capture.maxBitrate',
    'capture.temporalLayerCount', 'capture.gopSize', 'capture.bFrames'),
  ...required('boolean', 'capture.enableCABAC', 'capture.lowLatencyMode'),
  ...required('string', 'capture.encoderRequirement'),
  refused('capture.encoderRequirement', 'software',
    'capture.encoderRequirement must be "hardware" or "allow-degraded"'),
];

const geometryMessage =
  'source.geometry width and height must be positive ' +
  'for Linux x11 monitor capture';
const streamSizeMessage =
  'portal.streamSize width and height must be positive';
const portalMessage =
  'portal.pipeWireFd and portal.pipeWireNodeId are required';

const sourceChecks = {
  'x11 window': [
    ...required('number', 'source.handle'),
    refused('source.handle', 0, 'handle must be a positive safe integer'),
  ],
  'x11 monitor': [
    refused('source.handle', 7,
      'source.handle must be null for Linux x11 monitor capture'),
    ...required('object', 'source.geometry'),
    ...required('number', 'source.geometry.x', 'source.geometry.y',
      'source.geometry.width', 'source.geometry.height'),
    refused('source.geometry.width', 0, geometryMessage),
    refused('source.geometry.height', 0, geometryMessage),
  ],
  portal: [
    ...required('object', 'portal'),
    ...required('number', 'portal.pipeWireFd', 'portal.pipeWireNodeId',
      'portal.sourceType'),
    ...required('object', 'portal.streamSize'),
    ...required('number', 'portal.streamSize.width',
      'portal.streamSize.height'),
    refused('portal.streamSize.width', 0, streamSizeMessage),
    refused('portal.streamSize.height', -1, streamSizeMessage),
    refused('portal.pipeWireFd', -1, portalMessage),
    refused('portal.pipeWireNodeId', 0, portalMessage),
  ],
};

const targetsPath = 'linuxAudio.pipeWireTargetObjects';

const audioChecks = [
  refused('audio.mode', 'loopback',
    'unsupported Linux audio mode: loopback'),
  ...required('object', 'linuxAudio'),
  ...required('string', 'linuxAudio.mode'),
  refused('linuxAudio.mode', 'system',
    'linuxAudio.mode must be "process" for selected-process audio'),
  refused(targetsPath, missing,
    'linuxAudio.pipeWireTargetObjects must be an array'),
  refused(targetsPath, [1, '42'],
    'linuxAudio.pipeWireTargetObjects entries must be numbers'),
  refused(targetsPath, [1, 0],
    'linuxAudio.pipeWireTargetObjects entries must be positive'),
  refused(targetsPath, [],
    'requested Linux audio is unavailable: ' +
    'no PipeWire target objects were provided'),
];

const entryPath = 'capture.topology.branches.0';

const branchChecks = [
  ...required('object', 'capture.topology'),
  ...required('string', 'capture.topology.mode'),
  refused('capture.topology.mode', 'simulcast',
    'capture.topology.mode must be "direct" or "topology"'),
  refused('capture.width', 0,
    'video branch 0 requires positive width and height'),
  refused('capture.height', -2,
    'video branch 0 requires positive width and height'),
  refused('capture.width', 1281,
    'video branch 0 requires even width and height for H.264'),
  refused('capture.height', 721,
    'video branch 0 requires even width and height for H.264'),
  refused('capture.fps', 0, 'video branch 0 requires positive fps'),
  refused('capture.bitrate', 0,
    'video branch 0 requires positive bitrate and maxBitrate'),
  refused('capture.maxBitrate', 0,
    'video branch 0 requires positive bitrate and maxBitrate'),
  refused('capture.topology.branches', missing, lastRefusal),
  refused('capture.topology.branches', [1, 2, 3],
    'Linux Wayland parity supports one primary branch ' +
    'and at most two secondary branches'),
  refused(entryPath, 1,
    'capture.topology.branches entries must be objects'),
  ...required('number', `${entryPath}.width`, `${entryPath}.height`,
    `${entryPath}.fps`, `${entryPath}.bitrate`),
  refused(`${entryPath}.width`, 0,
    'video branch 1 requires positive width and height'),
  refused(`${entryPath}.height`, 361,
    'video branch 1 requires even width and height for H.264'),
  refused(`${entryPath}.fps`, 0, 'video branch 1 requires positive fps'),
  refused(`${entryPath}.bitrate`, 0,
    'video branch 1 requires positive bitrate and maxBitrate'),
];

/** Every check that a request of this source passes, in its order. */
export function checksOf(sourceName) {
  return [
    ...containers,
    ...sourceHead,
    ...captureValues,
    ...required('string', 'audio.mode'),
    ...sourceChecks[sourceName],
    ...audioChecks,
    ...branchChecks,
  ];
}

export const sourceNames = Object.keys(sources);

/** Every message with which a request can be refused before a launch. */
export const knownMessages = new Set([
  'captureSetup requires one canonical native capture DTO',
  'linuxAudio.mode must be "system" for system audio',
  layersRefusal,
  ...sourceNames.flatMap(checksOf).map(({ message }) => message),
  ...[1, 2].flatMap((index) => branchChecks
    .filter(({ message }) => message.startsWith('video branch 1'))
    .map(({ message }) => message.replace(/\d/, index))),
]);
knownMessages.delete('unsupported Linux audio mode: loopback');
