import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { hasIdrSlice } from '../support/annex_b.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 640, height: 360, scene: { fps: 60 } });
afterEach(() => addon.stopCapture());

const branchIndices = [0, 1, 2];
const request = monitorRequest({
  width: 320,
  height: 180,
  fps: 30,
  branches: [
    { width: 160, height: 90, fps: 25, bitrate: 1_000_000 },
    { width: 80, height: 44, fps: 20, bitrate: 500_000 },
  ],
});

const encodedFrames = () => addon.getStats().branchStats
  .map(({ encodedFrames: count }) => count);

test('a forced keyframe comes on every branch within two pictures',
  async () => {
    const collected = collect();
    addon.captureSetup(request);
    await until(
      () => branchIndices.every(
        (index) => collected.ofBranch(index).length >= 6),
      'the first pictures of every branch');

    const encodedBefore = encodedFrames();
    assert.equal(addon.forceKeyframe(), true);
    const encodedAfter = encodedFrames();
    await until(
      () => branchIndices.every((index) =>
        collected.ofBranch(index).length >= encodedAfter[index] + 4),
      'more pictures of every branch');
    const stats = addon.getStats();
    addon.stopCapture();

    for (const index of branchIndices) {
      const packets = collected.ofBranch(index);
      const keyframes = packets
        .map(({ payload }, position) => (hasIdrSlice(payload) ? position : -1))
        .filter((position) => position > 0);
      assert.equal(keyframes.length, 1, `branch ${index}: ${keyframes}`);
      assert.ok(keyframes[0] >= encodedBefore[index] &&
        keyframes[0] < encodedAfter[index] + 2,
      `branch ${index}: picture ${keyframes[0]} after ` +
        `${encodedBefore[index]} to ${encodedAfter[index]}`);
      assert.equal(packets[keyframes[0]].isKeyFrame, true);
      assert.equal(stats.branchStats[index].keyframes, 2);
      await decodeFlawlessly(packets);
    }
    assert.equal(stats.openH264Errors, 0);
    assert.equal(stats.lastOpenH264Error, '');
  });

test('after a stop there is no encoder left to force', () => {
  collect();
  addon.captureSetup(request);
  assert.equal(addon.forceKeyframe(), true);
  addon.stopCapture();
  assert.equal(addon.forceKeyframe(), false);
  assert.equal(addon.getStats().lastOpenH264Error,
    'Linux ForceKeyframe requires active OpenH264 or hardware video encoders');
});
