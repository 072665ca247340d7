import assert from 'node:assert/strict';
import { before, test } from 'node:test';
import { hasIdrSlice } from '../support/annex_b.mjs';
import {
  hardwareBranchKeys, hardwareBranches, runHardware,
} from '../support/hardware.mjs';
import { topLevelKeys } from '../support/statistics_keys.mjs';

// Not a multiple of four, so that the layer pattern is seen to start again.
const gopSize = 7;

let result;
const ofBranch = (index) => result.packets
  .filter(({ branchIndex }) => branchIndex === index);

before(async () => {
  result = await runHardware(`
    const collected = collect();
    addon.captureSetup(hardwareRequest({ gopSize: ${gopSize} }));
    const everyBranchHas = (counts) => counts.every(
      (count, index) => collected.ofBranch(index).length >= count);
    await until(() => everyBranchHas([32, 32, 32]), 'packets', 30_000);
    const stats = addon.getStats();
    const encoded = stats.branchStats.map((each) => each.encodedFrames);
    await until(() => everyBranchHas(encoded), 'what was encoded');
    addon.stopCapture();
    const stopped = addon.getStats();
    await until(
      () => collected.packets.length >= stopped.videoBridgeQueuedPackets,
      'the last packets');
    report({ ...collected, stats, stopped });
  `);
});

for (const { branchIndex, width, height, fps } of hardwareBranches) {
  const name = `branch ${branchIndex}`;

  test(`${name}: a packet is a keyframe when its picture is one`, () => {
    const packets = ofBranch(branchIndex);
    assert.deepEqual(packets.map(({ isKeyFrame }) => isKeyFrame),
      packets.map((_, position) => position % gopSize === 0));
    assert.deepEqual(packets.map(({ isKeyFrame }) => isKeyFrame),
      packets.map(({ payload }) => hasIdrSlice(payload)));
  });

  test(`${name}: layers run 0, 2, 1, 2 and again from each keyframe`, () => {
    assert.deepEqual(
      ofBranch(branchIndex).map(({ temporalIndex }) => temporalIndex),
      ofBranch(branchIndex).map(
        (_, position) => [0, 2, 1, 2, 0, 2, 1][position % gopSize]));
  });

  test(`${name}: statistics count what was delivered`, () => {
    const stats = result.stats.branchStats[branchIndex];
    assert.deepEqual(Object.keys(stats), hardwareBranchKeys);
    // Packets leave in the order in which they were counted.
    const counted = ofBranch(branchIndex).slice(0, stats.encodedFrames);
    assert.equal(counted.length, stats.encodedFrames);
    const layerCount = (layer) => counted
      .filter(({ temporalIndex }) => temporalIndex === layer).length;
    const layers = [0, 1, 2, 3].map(layerCount);
    const { byteRate, observedFps, firstFrameAtMs, lastFrameAtMs,
      bridgeQueuedPackets, ...rest } = stats;
    assert.deepEqual(rest, {
      branchIndex,
      width,
      height,
      configuredFps: fps,
      targetFps: fps,
      appliedBitrate: [3_000_000, 630_672, 164_509][branchIndex],
      appliedMaxBitrate: [4_000_000, 840_896, 219_346][branchIndex],
      droppedFrames: stats.droppedFrames,
      duplicateFrames: 0,
      rawFrames: counted.length,
      encodedFrames: counted.length,
      keyframes: counted.filter(({ isKeyFrame }) => isKeyFrame).length,
      bytesEncoded: counted.reduce(
        (sum, { payload }) => sum + payload.length, 0),
      bridgeDroppedPackets: 0,
      bridgeSuppressedDeltaPackets: 0,
      bridgeKeyframeRecoveryRequests: 0,
      hardwareKeyframeRequestsAccepted: 0,
      hardwareKeyframeRequestsFailed: 0,
      lastHardwareKeyframeRequestAtMs: 0,
      lastHardwareKeyframeAtMs:
        counted.findLast(({ isKeyFrame }) => isKeyFrame).enqueuedAtMs,
      maxHardwareKeyframeRecoveryLatencyMs: 0,
      temporalFrameCounts: layers,
      temporalFrameDeltas: { t0: layers[0], t1: layers[1], t2: layers[2] },
      allTemporalLayersEncoded: true,
    });
    assert.equal(bridgeQueuedPackets, stats.encodedFrames);
    assert.equal(firstFrameAtMs, counted[0].enqueuedAtMs);
    assert.equal(lastFrameAtMs, counted.at(-1).enqueuedAtMs);
    const span = lastFrameAtMs - firstFrameAtMs;
    assert.equal(observedFps, counted.length * 1000 / span);
    assert.equal(byteRate, stats.bytesEncoded * 1000 / span);
  });
}

test('the totals of the session are those of all branches', () => {
  const { stopped, packets } = result;
  assert.deepEqual(Object.keys(stopped), topLevelKeys);
  const keyframes = packets.filter(({ isKeyFrame }) => isKeyFrame).length;
  const { framesCaptured, framesEncoded, keyframesEncoded, deltaFramesEncoded,
    cpuMappedVideoFrames, videoBridgeQueuedPackets, videoBridgeDroppedPackets,
    videoBridgeSuppressedDeltaPackets } = stopped;
  assert.deepEqual({
    framesCaptured, framesEncoded, keyframesEncoded, deltaFramesEncoded,
    cpuMappedVideoFrames, videoBridgeQueuedPackets, videoBridgeDroppedPackets,
    videoBridgeSuppressedDeltaPackets,
  }, {
    framesCaptured: packets.length,
    framesEncoded: packets.length,
    keyframesEncoded: keyframes,
    deltaFramesEncoded: packets.length - keyframes,
    cpuMappedVideoFrames: 0,
    videoBridgeQueuedPackets: packets.length,
    videoBridgeDroppedPackets: 0,
    videoBridgeSuppressedDeltaPackets: 0,
  });
});

test('a stop empties the branch list and keeps what was chosen', () => {
  const { stopped } = result;
  assert.equal(stopped.capturing, false);
  assert.deepEqual(stopped.branchStats, []);
  assert.equal(stopped.selectedEncoder, 'gstreamer-nvh264enc');
  assert.equal(stopped.hardwareSimulcastFpsSatisfied, true);
  assert.equal(stopped.videoPipeline, result.stats.videoPipeline);
});

test('a reset keeps each branch\'s description and applied bitrates',
  async () => {
    const { applied, reset, later, setup } = await runHardware(`
      const collected = collect();
      addon.captureSetup(hardwareRequest());
      await until(() => [0, 1, 2].every(
        (index) => collected.ofBranch(index).length >= 4), 'packets');
      addon.setBitrate(1_500_000);
      addon.forceKeyframe();
      const setup = addon.getStats();
      const applied = setup.branchStats;
      addon.resetStats();
      const reset = addon.getStats();
      const seen = collected.ofBranch(2).length;
      await until(() => collected.ofBranch(2).length > seen + 4,
        'more packets');
      const later = addon.getStats();
      addon.stopCapture();
      report({ applied, reset, later, setup });
    `);
    assert.deepEqual(applied.map(({ appliedBitrate }) => appliedBitrate),
      [1_095_658, 282_195, 122_147]);
    applied.forEach((before, index) => {
      const after = reset.branchStats[index];
      for (const key of ['branchIndex', 'width', 'height', 'configuredFps',
        'targetFps', 'appliedBitrate', 'appliedMaxBitrate']) {
        assert.equal(after[key], before[key], key);
      }
      // A picture or two may have come between the two calls.
      assert.ok(before.encodedFrames >= 4);
      assert.ok(after.encodedFrames <= 2, `${after.encodedFrames}`);
      assert.equal(before.hardwareKeyframeRequestsAccepted, 1);
      assert.equal(after.hardwareKeyframeRequestsAccepted, 0);
      assert.ok(before.lastHardwareKeyframeRequestAtMs > 0);
      assert.equal(after.lastHardwareKeyframeRequestAtMs, 0);
      assert.equal(after.maxHardwareKeyframeRecoveryLatencyMs, 0);
      assert.ok(later.branchStats[index].encodedFrames > after.encodedFrames);
    });
    assert.equal(reset.width, 640);
    assert.equal(reset.height, 360);
    assert.equal(reset.sessionClockOriginUs, setup.sessionClockOriginUs);
    assert.equal(reset.videoPipeline, setup.videoPipeline);
  });
