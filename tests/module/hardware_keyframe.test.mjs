import assert from 'node:assert/strict';
import { test } from 'node:test';
import { hasIdrSlice } from '../support/annex_b.mjs';
import { runHardware } from '../support/hardware.mjs';

// Asks for a keyframe in mid-stream and waits for what follows. A group of 600
// pictures gives none by itself.
const force = `
  const collected = collect();
  addon.captureSetup(hardwareRequest({ gopSize: 600 }));
  const everyBranchHas = (counts) => counts.every(
    (count, index) => collected.ofBranch(index).length >= count);
  await until(() => everyBranchHas([6, 6, 6]), 'packets');
  const before = addon.getStats();
  const accepted = addon.forceKeyframe();
  const asked = addon.getStats();
  // Whatever was queued before the call may still be on its way.
  const queued = asked.branchStats.map((each) => each.bridgeQueuedPackets);
  await until(() => everyBranchHas(queued.map((count) => count + 6)),
    'more packets');
  const after = addon.getStats();
  addon.stopCapture();
  report({ packets: collected.packets, before, accepted, asked, queued,
    after });
`;
const ofBranch = ({ packets }, index) => packets
  .filter(({ branchIndex }) => branchIndex === index);
const keyframesOf = (packets) => packets
  .map(({ isKeyFrame }, position) => (isKeyFrame ? position : -1))
  .filter((position) => position !== -1);

function assertForced(result, index) {
  const packets = ofBranch(result, index);
  const [first, forced, ...more] = keyframesOf(packets);
  assert.equal(first, 0);
  assert.deepEqual(more, []);
  // Nothing is queued any more after the call but the keyframe; a packet may
  // be queued between the report before and the call itself.
  const earliest = result.before.branchStats[index].bridgeQueuedPackets;
  assert.ok(forced >= earliest && forced <= result.queued[index],
    `branch ${index}: keyframe ${forced}, queued ${earliest} to ` +
    `${result.queued[index]}`);
  assert.equal(hasIdrSlice(packets[forced].payload), true);
  assert.deepEqual(
    packets.slice(forced, forced + 6)
      .map(({ temporalIndex }) => temporalIndex),
    [0, 2, 1, 2, 0, 2]);
  return packets[forced];
}

test('the next delivered packet of every branch is the keyframe', async () => {
  const result = await runHardware(force);
  assert.equal(result.accepted, true);
  for (const index of [0, 1, 2]) {
    const keyframe = assertForced(result, index);
    const asked = result.asked.branchStats[index];
    const after = result.after.branchStats[index];
    assert.equal(asked.hardwareKeyframeRequestsAccepted, 1);
    assert.equal(asked.hardwareKeyframeRequestsFailed, 0);
    const requestedAt = asked.lastHardwareKeyframeRequestAtMs;
    assert.ok(requestedAt > asked.firstFrameAtMs);
    assert.equal(after.keyframes, 2);
    assert.equal(after.lastHardwareKeyframeAtMs, keyframe.enqueuedAtMs);
    assert.equal(after.maxHardwareKeyframeRecoveryLatencyMs,
      keyframe.enqueuedAtMs - requestedAt);
    assert.ok(after.maxHardwareKeyframeRecoveryLatencyMs < 1_000);
  }
  assert.equal(result.after.openH264Errors, 0);
  assert.equal(result.after.lastOpenH264Error, '');
});

test('a refusal by every encoder is counted and named', async () => {
  const result = await runHardware(force, { switches: 'reject-keyframes' });
  assert.equal(result.accepted, false);
  for (const index of [0, 1, 2]) {
    const packets = ofBranch(result, index);
    assert.deepEqual(keyframesOf(packets), [0]);
    const asked = result.asked.branchStats[index];
    assert.equal(asked.hardwareKeyframeRequestsAccepted, 0);
    assert.equal(asked.hardwareKeyframeRequestsFailed, 1);
    assert.equal(asked.lastHardwareKeyframeRequestAtMs, 0);
    // Nothing is held back for a keyframe that will not come.
    assert.equal(result.after.branchStats[index].bridgeSuppressedDeltaPackets,
      0);
  }
  assert.equal(result.asked.openH264Errors, 1);
  assert.equal(result.asked.lastOpenH264Error,
    'Linux hardware ForceKeyframe was rejected by videoEncoder2');
});

test('one encoder that cannot be found does not keep the others', async () => {
  const result = await runHardware(force, { switches: 'hide-encoder=1' });
  assert.equal(result.accepted, true);
  assertForced(result, 0);
  assertForced(result, 2);
  assert.deepEqual(keyframesOf(ofBranch(result, 1)), [0]);
  assert.deepEqual(
    result.asked.branchStats.map(
      ({ hardwareKeyframeRequestsAccepted }) =>
        hardwareKeyframeRequestsAccepted),
    [1, 0, 1]);
  assert.equal(result.asked.openH264Errors, 0);
  assert.equal(result.asked.lastOpenH264Error, '');
});
