import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { hasIdrSlice } from '../support/annex_b.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { FrameNumbers } from '../support/frame_numbers.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 60 } });

const queueSize = 512;
// Three small and fast branches fill the queue in a second and a half.
const rates = [120, 119, 118];
const branchIndices = [0, 1, 2];
const request = monitorRequest({
  sourceWidth: 320,
  sourceHeight: 180,
  width: 160,
  height: 90,
  fps: rates[0],
  temporalLayerCount: 1,
  branches: [
    { width: 96, height: 54, fps: rates[1], bitrate: 300_000 },
    { width: 64, height: 36, fps: rates[2], bitrate: 300_000 },
  ],
});

/** Keeps this thread from doing anything at all, timers included. */
function blockThisThread(milliseconds) {
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, milliseconds);
}

const suppressed = (stats) => stats.branchStats
  .map(({ bridgeSuppressedDeltaPackets: count }) => count);

describe('a JavaScript thread that is blocked for a while', () => {
  let collected;
  let blocked;
  let deliveredBefore;
  let final;
  let finalBranches;

  before(async () => {
    collected = collect();
    addon.captureSetup(request);
    await until(
      () => branchIndices.every(
        (index) => collected.ofBranch(index).length > 0),
      'the first packets of every branch');

    deliveredBefore = collected.packets.length;
    const deadline = performance.now() + 15_000;
    do {
      blockThisThread(250);
      blocked = addon.getStats();
    } while (!suppressed(blocked).every((count) => count > 10) &&
      performance.now() < deadline);

    assert.equal(collected.packets.length, deliveredBefore,
      'nothing is delivered to a blocked thread');
    addon.forceKeyframe();
    // The queued packets come first, then what follows the gap.
    await until(
      () => branchIndices.every((index) => {
        const gap = gapOf(collected.ofBranch(index), rates[index]);
        return gap > 0 && collected.ofBranch(index).length > gap + 30;
      }),
      'every branch to go on after its gap');
    finalBranches = addon.getStats().branchStats;
    addon.stopCapture();
    await until(() => collected.events.length >= 2, 'the stopped event');
    final = addon.getStats();
  });

  /** The place of the first packet that is not the next picture, or -1. */
  function gapOf(packets, rate) {
    return packets.findIndex((packet, position) => position > 0 &&
      packet.timestampUs - packets[position - 1].timestampUs > 3e6 / rate);
  }

  test('the queue holds its limit and not one packet more', () => {
    assert.equal(blocked.videoBridgeQueuedPackets - deliveredBefore,
      queueSize);
  });

  test('every branch counts what it lost and asks for a keyframe', () => {
    for (const branch of blocked.branchStats) {
      assert.ok(branch.bridgeDroppedPackets >= 1);
      assert.equal(branch.bridgeKeyframeRecoveryRequests,
        branch.bridgeDroppedPackets);
      assert.ok(branch.bridgeSuppressedDeltaPackets > 10);
    }
  });

  test('the counts of the branches add up to those of the bridge', () => {
    const sum = (key) => finalBranches
      .reduce((total, branch) => total + branch[key], 0);
    assert.equal(sum('bridgeDroppedPackets'), final.videoBridgeDroppedPackets);
    assert.equal(sum('bridgeSuppressedDeltaPackets'),
      final.videoBridgeSuppressedDeltaPackets);
  });

  test('what was queued is what was delivered, also after the stop', () => {
    assert.equal(collected.packets.length, final.videoBridgeQueuedPackets);
  });

  for (const index of branchIndices) {
    test(`branch ${index} goes on with a keyframe after its gap`, () => {
      const packets = collected.ofBranch(index);
      const gap = gapOf(packets, rates[index]);
      assert.ok(hasIdrSlice(packets[gap].payload));
      assert.equal(packets[gap].isKeyFrame, true);
    });

    test(`branch ${index} lacks no picture that another one builds on`, () => {
      const countBroken = (packets) => {
        const numbers = new FrameNumbers();
        return packets.filter(({ payload }) => !numbers.take(payload)).length;
      };
      const packets = collected.ofBranch(index);
      assert.equal(countBroken(packets), 0);
      // One that is taken out is noticed where the next one builds on it.
      assert.ok(countBroken([packets[0], ...packets.slice(2)]) > 0);
    });

    test(`branch ${index} decodes as a whole`, async () => {
      await decodeFlawlessly(collected.ofBranch(index));
    });
  }
});
