import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { startCapture } from 'linux-capture-addon/session';
import { decodeToRgb } from '../support/decode.mjs';
import { colourAt, patchColours } from '../support/picture.mjs';
import { startScene } from '../support/scene.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const black = [0, 0, 0];
const [red] = patchColours;

let xvfb;
let scene;
let desktop;
before(async () => {
  xvfb = await startXvfb({ width: 800, height: 480 });
  process.env.DISPLAY = xvfb.display;
  desktop = desktopOf(xvfb.display);
  scene = await startScene({
    display: xvfb.display, width: 320, height: 180, x: 40, y: 40, fps: 10,
  });
});
after(async () => {
  await scene?.stop();
  await xvfb?.stop();
});

// Black that is a dark grey is none.
const isNear = (colour, wanted) => colour.every((value, channel) =>
  Math.abs(value - wanted[channel]) < (wanted === black ? 10 : 40));

/**
 * Captures until the last picture has these colours, at places given in pixels;
 * returns all that was captured.
 */
async function captureUntil(capture, packets, colours, what) {
  const deadline = performance.now() + 20_000;
  for await (const packet of capture.video()) {
    packets.push({ ...packet, payload: packet.data });
    if (packets.length % 10 !== 0) continue;
    const { pictures } = await decodeToRgb(packets);
    const last = pictures.at(-1);
    const seen = colours.map(([x, y]) =>
      colourAt(last, x / last.width, y / last.height));
    if (seen.every((colour, i) => isNear(colour, colours[i][2]))) return;
    assert.ok(performance.now() < deadline,
      `${what}: ${JSON.stringify(seen)}`);
  }
}

async function capturing(video, run) {
  const capture = await startCapture({
    source: { type: 'window', id: scene.window }, video: { fps: 10, ...video },
  });
  try {
    await run(capture);
  } finally {
    await capture.stop();
  }
}

test('a window that becomes narrow, and low, keeps its proportions',
  async () => {
    await capturing({}, async (capture) => {
      const packets = [];
      await captureUntil(capture, packets,
        [[20, 70, red], [4, 70, red]], 'the whole window');
      // Its left half, in the middle of the picture.
      await desktop.resize(scene.window, 160, 180);
      await captureUntil(capture, packets,
        [[40, 70, black], [280, 70, black], [100, 70, red]], 'bars beside it');
      // The upper half.
      await desktop.resize(scene.window, 320, 90);
      await captureUntil(capture, packets,
        [[20, 20, black], [20, 160, black], [20, 125, red]],
        'bars above and below');
      await desktop.resize(scene.window, 320, 180);
      await captureUntil(capture, packets,
        [[20, 70, red], [4, 70, red]], 'the whole window again');
      const sizes = new Set(packets.map(({ width, height }) =>
        `${width}x${height}`));
      assert.deepEqual([...sizes], ['320x180']);
    });
  });

test('a window is not stretched to the size that was asked for', async () => {
  await capturing({ width: 320, height: 320 }, async (capture) => {
    await captureUntil(capture, [],
      [[20, 30, black], [20, 290, black], [20, 140, red]], 'bars');
  });
});
