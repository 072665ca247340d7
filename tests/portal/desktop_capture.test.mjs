import assert from 'node:assert/strict';
import { closeSync } from 'node:fs';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect, runCapture } from '../support/capture.mjs';
import { startDesktop } from '../support/desktop.mjs';
import { readNumber, typicalColourError } from '../support/picture.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { smallCapture } from '../support/requests.mjs';
import { checkPacketShape, decodeFlawlessly } from
  '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const size = { width: 640, height: 360 };
const branches = [
  { branchIndex: 0, ...size, fps: 30, bitrate: 4_000_000 },
  { branchIndex: 1, width: 320, height: 180, fps: 15, bitrate: 1_500_000 },
  { branchIndex: 2, width: 160, height: 90, fps: 7, bitrate: 700_000 },
];

let desktop;
before(async () => {
  desktop = await startDesktop(size);
  // The module looks for the daemon where its host's session has it.
  for (const name of Object.keys(process.env)) {
    if (!Object.hasOwn(desktop.environment, name)) delete process.env[name];
  }
  Object.assign(process.env, desktop.environment);
  await desktop.startPictures();
});
after(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

/** A request made of nothing but what the program printed, and a descriptor. */
function requestOf(report, fd) {
  const [{ branchIndex, ...primary }, ...secondaries] = branches;
  return {
    source: { backend: 'portal', kind: report.kind },
    portal: { ...report, pipeWireFd: fd },
    capture: {
      ...smallCapture,
      ...primary,
      maxBitrate: 8_000_000,
      topology: { mode: 'topology', branches: secondaries },
    },
    audio: { mode: 'none' },
  };
}

/** Runs `use` with a stream that the portal grants and a copy of its fd. */
async function withStream(use, args = []) {
  const program = desktop.startPortalProgram(args);
  try {
    const report = await program.report();
    const fd = addon.duplicateFdFromPid(report.pid, report.pipeWireFd);
    try {
      return await use({ program, report, fd });
    } finally {
      closeSync(fd);
    }
  } finally {
    addon.stopCapture();
    await program.stop();
  }
}

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

const hasNode = async ({ pipeWireNodeId }) =>
  (await readObjects(desktop.pipeWire)).nodes
    .some(({ id }) => id === pipeWireNodeId);

test('the desktop grants a stream of its screen', () =>
  withStream(async ({ report }) => {
    assert.deepEqual(report.streamSize, size);
    assert.deepEqual([report.sourceType, report.kind], [1, 'monitor']);
    assert.ok(await hasNode(report));
  }));

test('a capture in three branches shows the screen', () =>
  withStream(async ({ report, fd }) => {
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
  withStream(async ({ report, fd }) => {
    for (let round = 0; round < 2; round += 1) {
      const captured = await runCapture(requestOf(report, fd),
        { seconds: 0.5, branchCount: branches.length });
      assert.ok(captured.ofBranch(0)[0].isKeyFrame);
    }
  }));

test('closing the program\'s input ends it and the stream', () =>
  withStream(async ({ program, report }) => {
    program.close();
    const { status, stderr } = await program.end();
    assert.deepEqual([status, stderr], [0, '']);
    await until(async () => !await hasNode(report), 'the stream to end');
  }));

test('the end of the stream reaches the host as an error', () =>
  withStream(async ({ program, report, fd }) => {
    const collected = collect();
    addon.captureSetup(requestOf(report, fd));
    await until(() => collected.packets.length > 10, 'pictures');
    program.close();
    assert.equal((await program.end()).status, 0);
    await until(() => collected.events.some(({ state }) => state === 'error'),
      'the error event', 20_000);
    assert.match(
      collected.events.find(({ state }) => state === 'error').reason,
      /^video: /);
    addon.stopCapture();
    await until(
      () => collected.events.some(({ state }) => state === 'stopped'),
      'the stopped event');
  }));

test('a choice that was kept is restored', async () => {
  const keep = ['--persist', 'session'];
  const { restoreToken } =
    await withStream(({ report }) => Promise.resolve(report), keep);
  assert.equal(typeof restoreToken, 'string');
  await withStream(async ({ report }) => {
    assert.equal(report.restoreTokenUsed, true);
    assert.equal(typeof report.restoreToken, 'string');
    assert.equal(report.restoreTokenUpdated,
      report.restoreToken !== restoreToken);
  }, [...keep, '--restore-token', restoreToken]);
});

// The last test: nothing of the desktop can be used after it.
test('a compositor that dies reaches the host as an error', () =>
  withStream(async ({ program, report, fd }) => {
    const collected = collect();
    addon.captureSetup(requestOf(report, fd));
    await until(() => collected.packets.length > 10, 'pictures');
    await desktop.compositor.kill();
    const error = await until(
      () => collected.events.find(({ state }) => state === 'error'),
      'the error event', 20_000);
    assert.match(error.reason, /^video: /);
    const begin = performance.now();
    addon.stopCapture();
    assert.ok(performance.now() - begin < 5_000);
    assert.equal(addon.isCapturing(), false);
    await desktop.portal.kill();
    const { status, stderr } = await program.end();
    assert.deepEqual([status, stderr],
      [6, 'linux-capture-portal: the desktop portal went away\n']);
  }));
