/** The screen that every scenario captures. */
export const screen = Object.freeze({ width: 1920, height: 1080 });

// Twice the fastest branch, so that no branch can mistake a picture that was
// not drawn yet for one that was lost.
const movingHz = 60;
const stillHz = 1;

const moving = Object.freeze({ kind: 'moving', hz: movingHz });
const still = Object.freeze({ kind: 'still', hz: stillHz });
// Only the barcode changes, and its cells come and go as small things on a
// screen do, once for each picture of the fastest branch.
const counting = Object.freeze({ kind: 'still', hz: 30 });

const three = Object.freeze([
  { width: 1920, height: 1080, fps: 30, bitrate: 6e6, maxBitrate: 8e6 },
  { width: 960, height: 540, fps: 15, bitrate: 1.5e6, maxBitrate: 1.5e6 },
  { width: 480, height: 270, fps: 7, bitrate: 4e5, maxBitrate: 4e5 },
]);
const one = Object.freeze([
  { width: 1280, height: 720, fps: 30, bitrate: 4e6, maxBitrate: 6e6 },
]);

export const scenarios = Object.freeze([
  { name: 'three-moving', scene: moving, branches: three },
  { name: 'three-still', scene: still, branches: three },
  { name: 'one-moving', scene: moving, branches: one },
  { name: 'one-still', scene: still, branches: one },
  { name: 'three-layers', scene: counting, branches: three, layers: 3 },
]);

export const sizeOf = ({ width, height }) => `${width}x${height}`;

/** "1920x1080@30 + 960x540@15" */
export const branchesText = (branches) => branches
  .map((branch) => `${sizeOf(branch)}@${branch.fps}`).join(' + ');
