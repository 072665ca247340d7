// What a capture delivers where the machine is too slow for any rate: an emulated
// processor runs this too.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { hasIdrSlice } from '../support/annex_b.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest, windowRequest } from '../support/requests.mjs';
import { checkAccessUnits, checkPacketShape } from
  '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const source = { width: 320, height: 180 };
// One of the same rate would be no step down, and left out.
const secondary = { width: 160, height: 90, fps: 4, bitrate: 500_000 };
const context = useDisplay({ ...source, scene: { fps: 5 } });
const limitMs = 240_000;

/** Starts, once more where the first time was too slow: all is loaded then. */
const start = (request) => until(() => {
  try {
    addon.captureSetup(request);
    return true;
  } catch (error) {
    if (error.code !== 'source-stalled') throw error;
    return false;
  }
}, 'the start', limitMs);

for (const [what, makeRequest] of [
  ['the screen', (capture) => monitorRequest({
    sourceWidth: source.width, sourceHeight: source.height, ...capture })],
  ['a window', (capture) =>
    windowRequest({ handle: context.scene.window, ...capture })],
]) {
  let collected;
  const ofBranch = (branch) => collected.ofBranch(branch);

  test(`${what} starts in two branches`, async () => {
    collected = collect();
    await start(makeRequest({ ...source, fps: 5, branches: [secondary] }));
    await until(() => [0, 1].every((branch) => ofBranch(branch).length > 8),
      'packets of both branches', limitMs);
    assert.equal(collected.events.at(-1).state, 'ready');
  });

  test(`${what}: both are streams of whole pictures`, () => {
    for (const branchIndex of [0, 1]) {
      const packets = ofBranch(branchIndex);
      const { width, height } = addon.getStats().branchStats[branchIndex];
      checkPacketShape(packets, { branchIndex, width, height });
      checkAccessUnits(packets);
      assert.ok(hasIdrSlice(packets[0].payload));
      assert.deepEqual(packets.map(({ isKeyFrame }) => isKeyFrame),
        packets.map(({ payload }) => hasIdrSlice(payload)));
      assert.deepEqual(packets.slice(0, 5).map((packet) =>
        packet.temporalIndex), [0, 2, 1, 2, 0]);
    }
  });

  test(`${what}: a keyframe comes when it is asked for`, async () => {
    const before = ofBranch(0).filter(({ isKeyFrame }) => isKeyFrame).length;
    addon.forceKeyframe();
    await until(() => ofBranch(0).filter(({ isKeyFrame }) => isKeyFrame)
      .length > before, 'the keyframe', limitMs);
  });

  test(`${what}: it ends without an error`, async () => {
    addon.stopCapture();
    await until(() => collected.events.some(({ state }) =>
      state === 'stopped'), 'the stopped event', limitMs);
    const { openH264Errors, gstBusErrors, capturing } = addon.getStats();
    assert.deepEqual({ openH264Errors, gstBusErrors, capturing },
      { openH264Errors: 0, gstBusErrors: 0, capturing: false });
  });
}
