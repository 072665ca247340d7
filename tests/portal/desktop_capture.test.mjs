import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { runCapture } from '../support/capture.mjs';
import { branches, enterDesktop, hasNode, requestOf, size, withStream } from
  '../support/desktop_streams.mjs';
import { readNumber, typicalColourError } from '../support/picture.mjs';
import { checkPacketShape, decodeFlawlessly } from
  '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

let desktop;
before(async () => {
  desktop = await enterDesktop();
});
after(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

/**
 * How many pictures show a number above all before them. Not all need to: the
 * encoder sometimes leaves one block of an earlier picture standing, which the
 * next picture mends and which may be a digit, and a compositor on a busy
 * machine may show one picture twice.
 */
function countLater(numbers) {
  let latest = -1;
  return numbers.filter((number) => {
    const isLater = number !== null && number > latest;
    if (isLater) latest = number;
    return isLater;
  }).length;
}

test('the desktop grants a stream of its screen', () =>
  withStream(desktop, async ({ report }) => {
    assert.deepEqual(report.streamSize, size);
    assert.deepEqual([report.sourceType, report.kind], [1, 'monitor']);
    assert.ok(await hasNode(desktop, report));
  }));

test('a capture in three branches shows the screen', () =>
  withStream(desktop, async ({ report, fd }) => {
    const captured = await runCapture(requestOf(report, fd),
      { seconds: 2, branchCount: branches.length });
    assert.deepEqual(captured.events.map(({ state }) => state),
      ['ready', 'stopped']);
    assert.equal(addon.isCapturing(), false);
    for (const branch of branches) {
      const packets = captured.ofBranch(branch.branchIndex);
      checkPacketShape(packets, branch);
      const pictures = await decodeFlawlessly(packets);
      const later = countLater(pictures.map(readNumber));
      assert.ok(later >= 0.6 * pictures.length,
        `branch ${branch.branchIndex}: ${later} of ${pictures.length}`);
      const error = typicalColourError(pictures);
      assert.ok(error <= 6, `a colour is off by ${error}`);
    }
    assert.equal(captured.stats.portal.pipeWireNodeId, report.pipeWireNodeId);
  }));

test('one stream can be captured again after a stop', () =>
  withStream(desktop, async ({ report, fd }) => {
    for (let round = 0; round < 2; round += 1) {
      const captured = await runCapture(requestOf(report, fd),
        { seconds: 0.5, branchCount: branches.length });
      assert.ok(captured.ofBranch(0)[0].isKeyFrame);
    }
  }));

test('closing the program\'s input ends it and the stream', () =>
  withStream(desktop, async ({ program, report }) => {
    program.close();
    const { status, stderr } = await program.end();
    assert.deepEqual([status, stderr], [0, '']);
    await until(async () => !await hasNode(desktop, report),
      'the stream to end');
  }));

test('a choice that was kept is restored in a later run', async () => {
  const keep = ['--persist', 'permanent'];
  const tokensWith = (given) => withStream(desktop,
    async ({ report: { restoreToken, ...report } }) =>
      [restoreToken, report.restoreTokenUsed, report.restoreTokenUpdated],
    keep, given);
  const [token, ...first] = await tokensWith();
  assert.equal(typeof token, 'string');
  assert.deepEqual(first, [false, true]);
  // This portal gives a new token to what it had to ask for anew.
  assert.deepEqual(await tokensWith(token),
    [token, true, false]);
  const unknown = '00000000-0000-4000-8000-000000000000';
  const [other] = await tokensWith(unknown);
  assert.notEqual(other, unknown);
  assert.notEqual(other, token);
});
