import assert from 'node:assert/strict';
import { test } from 'node:test';

import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 10 } });

const sized = (width, height) => monitorRequest({
  sourceWidth: width, sourceHeight: height, width, height });

for (const [width, height] of [[64, 14], [14, 64], [2, 2]]) {
  test(`a branch of ${width}x${height} is refused before the start`, () => {
    const { events } = collect();
    assert.throws(() => addon.captureSetup(sized(width, height)), {
      message: `video branch 0 of ${width}x${height} is smaller than 16x16, ` +
        'the least that OpenH264 encodes',
      code: 'invalid-request',
    });
    assert.equal(addon.isCapturing(), false);
    assert.deepEqual(events, []);
  });
}

test('a branch of 16x16 is recorded', async () => {
  const { events, packets } = collect();
  addon.captureSetup(sized(16, 16));
  try {
    await until(() => packets.length > 3, 'packets');
  } finally {
    addon.stopCapture();
  }
  await until(() => events.length >= 2, 'the events');
  assert.deepEqual(events.map(({ state }) => state), ['ready', 'stopped']);
});
