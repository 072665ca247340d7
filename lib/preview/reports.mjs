/** What was captured, in a few words. */
export function describeSource(source) {
  switch (source.type) {
    case 'monitor': {
      const { x, y, width, height } = source.geometry;
      return source.name === null
        ? `${width}x${height} pixels of the screen at ${x},${y}`
        : `Monitor ${source.name}`;
    }
    case 'window':
      return `Window “${source.title ?? source.id}”`;
    default:
      return source.kind === 'window' ? 'A window' : 'A screen';
  }
}

function bitrateControl({ encoder, video }) {
  return encoder.isHardware
    ? {
      isSupported: true,
      bitsPerSecond: video.branches.reduce(
        (sum, { targetBitsPerSecond }) => sum + targetBitsPerSecond, 0),
    }
    : { isSupported: false };
}

// What a page plays goes to the same output as everything else.
const echoReason = 'The sound of everything is captured, this page’s own ' +
  'too: to play it here would make an echo of it.';

const howlReason = 'A microphone is captured: to play it here would be heard ' +
  'by it again.';

function reasonAgainst({ mode, sources }) {
  if (mode === 'system') return echoReason;
  return sources.some(({ kind }) => kind === 'microphone') ? howlReason : null;
}

function soundControl(capture, { audio }) {
  if (!capture.hasAudio) return null;
  const reason = reasonAgainst(audio);
  return { canListen: reason === null, reason };
}

/** The first message to a page. */
export function greeting(capture) {
  const stats = capture.stats();
  return {
    type: 'hello',
    source: describeSource(capture.source),
    branches: capture.branches,
    layers: stats.video.layers,
    encoder: stats.encoder,
    bitrate: bitrateControl(stats),
    sound: soundControl(capture, stats),
    isPaused: capture.isPaused,
  };
}

/** The counters of all branches; pages work out the rates. */
export function statistics(capture) {
  const { video, audio, errors } = capture.stats();
  return {
    type: 'stats',
    atMs: Date.now(),
    branches: video.branches.map((branch) => ({
      frames: branch.frames,
      keyframes: branch.keyframes,
      bytes: branch.bytes,
      framesPerLayer: branch.framesPerLayer,
      dropped: branch.droppedByModule + branch.reader.dropped,
    })),
    audioDropped: audio === null ? 0
      : audio.droppedByModule + audio.reader.dropped,
    errors: errors.pipeline + errors.encoder,
  };
}

/** What the capture is living through; `over` tells how one of them ended. */
export function troubles(present, over = null) {
  return { type: 'troubles', texts: [...present.values()], over };
}

const endings = {
  abort: 'The capture was stopped.',
  error: 'The capture met an error.',
  stop: 'The capture was stopped.',
  'source-ended': 'The source ended.',
};

/** The last message to a page. */
export function farewell({ reason, error, detail }) {
  return {
    type: 'ended',
    isError: error !== null,
    title: endings[reason],
    detail: error?.message ?? detail ?? '',
  };
}
