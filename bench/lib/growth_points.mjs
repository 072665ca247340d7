// Which captures "--growth" measures, each of a screen of the first branch's
// size.

const sizes = Object.freeze({
  '360p': [640, 360],
  '720p': [1280, 720],
  '1080p': [1920, 1080],
  '1440p': [2560, 1440],
  '4K': [3840, 2160],
});

// What a busy screen needs, in bits for a pixel of a picture.
const bitsPerPixel = 0.1;
const leastBitrate = 100_000;

// Twice the rate, so that no picture is mistaken for a lost one, but no more
// than the X server copies beside a capture: it would take the processor that
// the encoder needs.
const mostSceneMegapixels = 500;

function sceneRate([width, height], scene, fps) {
  if (scene === 'still') return 1;
  const most = Math.floor((mostSceneMegapixels * 1e6) / (width * height));
  return Math.min(2 * fps, Math.max(fps, most));
}

const even = (number) => Math.floor(number / 2) * 2;

function branchAt([width, height], fps, divisor) {
  const size = { width: even(width / divisor), height: even(height / divisor) };
  const bitrate = Math.max(leastBitrate,
    Math.round(size.width * size.height * fps * bitsPerPixel));
  return { ...size, fps, bitrate, maxBitrate: bitrate };
}

/** One capture: from the first branch on, sides and rate are halved. */
export function growthPoint(size, { scene = 'moving', fps = 30, branches = 1,
  layers = 1 } = {}) {
  const [width, height] = sizes[size];
  return {
    name: `${scene} ${size}@${fps}, ${branches} branch` +
      `${branches > 1 ? 'es' : ''}, ${layers} layer${layers > 1 ? 's' : ''}`,
    screen: { width, height },
    scene: { kind: scene, hz: sceneRate(sizes[size], scene, fps) },
    branches: Array.from({ length: branches }, (_, i) =>
      branchAt(sizes[size], Math.floor(fps / 2 ** i), 2 ** i)),
    layers,
  };
}

/**
 * Each dimension on its own, and the scenes at every size; as few that all of
 * them take ten minutes.
 */
export function growthPoints(isQuick) {
  if (isQuick) {
    return [
      growthPoint('360p'), growthPoint('1080p'),
      growthPoint('1080p', { scene: 'still' }),
      growthPoint('720p', { scene: 'terminal', branches: 3, layers: 3 }),
      growthPoint('720p', { scene: 'film' }),
      growthPoint('4K', { fps: 60 }),
    ];
  }
  const scenes = ['moving', 'still', 'terminal', 'film'];
  return [
    ...Object.keys(sizes).flatMap((size) =>
      scenes.map((scene) => growthPoint(size, { scene }))),
    ...Object.keys(sizes).flatMap((size) =>
      [15, 60].map((fps) => growthPoint(size, { fps }))),
    growthPoint('1080p', { branches: 2 }),
    ...Object.keys(sizes).map((size) => growthPoint(size, { branches: 3 })),
    growthPoint('1080p', { layers: 2 }),
    ...Object.keys(sizes).map((size) => growthPoint(size, { layers: 3 })),
    growthPoint('1080p', { scene: 'terminal', branches: 3, layers: 3 }),
    growthPoint('1080p', { scene: 'film', branches: 3, layers: 3 }),
  ];
}
