import assert from 'node:assert/strict';
import { test } from 'node:test';

import { withHost } from '../support/host.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { startScene } from '../support/scene.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const request = monitorRequest({
  sourceWidth: 320, sourceHeight: 180, width: 320, height: 180 });

async function onScreenOf(depth, body) {
  const xvfb = await startXvfb({ ...size, depth });
  try {
    await withHost({ display: xvfb.display }, (host) => body(host, xvfb));
  } finally {
    await xvfb.stop();
  }
}

for (const [depth, reason] of [
  [30, 'its colours have more than 8 bits'],
  [8, 'its pixels are numbers of a palette'],
]) {
  test(`a screen of depth ${depth} is refused by name`, () =>
    onScreenOf(depth, async (host) => {
      await assert.rejects(host.setup(request), {
        name: 'Error',
        message:
          `the X11 screen of depth ${depth} cannot be captured: ${reason}`,
      });
      assert.equal(await host.isCapturing(), false);
    }));
}

test('a screen of depth 24 is captured', () =>
  onScreenOf(24, async (host, xvfb) => {
    const scene = await startScene({ ...size, display: xvfb.display, fps: 10 });
    try {
      await host.setup(request);
      await host.packets(5);
    } finally {
      await scene.stop();
    }
  }));
