import assert from 'node:assert/strict';
import { readdirSync } from 'node:fs';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 60 } });

const request = monitorRequest({
  sourceWidth: 320,
  sourceHeight: 180,
  branches: [{ width: 160, height: 90, fps: 15, bitrate: 500_000 }],
});
const count = (folder) => readdirSync(`/proc/self/${folder}`).length;

async function captureOnePicture() {
  const { packets } = collect();
  addon.captureSetup(request);
  await until(() => packets.length > 0, 'a packet');
}

test('fifty captures leave no thread and no descriptor behind', async () => {
  // The first captures load libraries and fill pools that stay.
  for (let cycle = 0; cycle < 5; cycle += 1) {
    await captureOnePicture();
    addon.stopCapture();
  }
  const threads = count('task');
  const descriptors = count('fd');

  for (let cycle = 0; cycle < 50; cycle += 1) {
    await captureOnePicture();
    addon.stopCapture();
  }
  // A thread's entry goes a moment after the thread was joined.
  await until(() => count('task') <= threads,
    `${threads} threads, there are ${count('task')}`, 5_000);
  assert.equal(count('fd'), descriptors);
});

test('captures set up over running ones leave nothing behind either',
  async () => {
    await captureOnePicture();
    const threads = count('task');
    const descriptors = count('fd');
    for (let cycle = 0; cycle < 10; cycle += 1) {
      await captureOnePicture();
      assert.equal(addon.isCapturing(), true);
    }
    await until(() => count('task') <= threads,
      `${threads} threads, there are ${count('task')}`, 5_000);
    assert.equal(count('fd'), descriptors);
    addon.stopCapture();
    assert.equal(addon.isCapturing(), false);
  });
