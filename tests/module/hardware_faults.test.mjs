import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runHardware } from '../support/hardware.mjs';

// Tries one setup and tells how it ended, then mends its cause and captures.
const failThenCapture = ({ spoil = '', mend }) => `
  const collected = collect();
  ${spoil};
  let thrown = null;
  try {
    addon.captureSetup(hardwareRequest());
  } catch (error) {
    thrown = { name: error.name, message: error.message };
  }
  const idle = addon.getStats();
  const isCapturing = addon.isCapturing();
  const forced = addon.forceKeyframe();
  const forceError = addon.getStats().lastOpenH264Error;
  await new Promise(setImmediate);
  const failedEvents = [...collected.events];
  ${mend};
  addon.captureSetup(hardwareRequest());
  await until(() => collected.ofBranch(2).length > 2, 'packets');
  const next = addon.getStats();
  addon.stopCapture();
  report({ thrown, idle, isCapturing, forced, forceError, failedEvents, next });
`;

function assertIdleThenGood({
  idle, isCapturing, forced, forceError, failedEvents, next,
}) {
  assert.equal(isCapturing, false);
  assert.equal(idle.capturing, false);
  assert.deepEqual(idle.branchStats, []);
  assert.equal(idle.framesEncoded, 0);
  assert.equal(forced, false);
  assert.equal(forceError,
    'Linux ForceKeyframe requires active OpenH264 or hardware video encoders');
  assert.deepEqual(failedEvents, [], 'a failed setup emits no event');
  assert.equal(next.gstBusErrors, 0);
  assert.equal(next.lastGstBusError, '');
  assert.equal(next.branchStats.length, 3);
}

test('an encoder that does not start is an error and leaves all idle',
  async () => {
    const result = await runHardware(
      failThenCapture({ mend: "switchStandins('')" }),
      { switches: 'fail-start' });
    assert.deepEqual(result.thrown, {
      name: 'Error', message: 'video pipeline failed to enter PLAYING state',
    });
    assert.ok(result.stages.includes(
      'captureSetup:error:video pipeline failed to enter PLAYING state'));
    assertIdleThenGood(result);
  });

test('GL that cannot be used is an error and leaves all idle', async () => {
  const result = await runHardware(failThenCapture({
    spoil: "process.env.GST_GL_API = 'none'",
    mend: "process.env.GST_GL_API = 'opengl3'",
  }));
  assert.equal(result.thrown.name, 'Error');
  assert.match(result.thrown.message, new RegExp('^video pipeline (failed to ' +
    'enter PLAYING state|reported GStreamer state-change failure)$'));
  assertIdleThenGood(result);
});

for (const { what, switches, property } of [
  { what: 'no bitrate', switches: 'no-bitrate', property: 'bitrate' },
  // The encoder of GStreamer before 1.26.
  { what: 'no cabac', switches: 'old-properties', property: 'cabac' },
]) {
  test(`an encoder with ${what} is refused and the property named`,
    async () => {
      const { thrown, isCapturing, branches } = await runHardware(`
        let thrown = null;
        try {
          addon.captureSetup(hardwareRequest());
        } catch (error) {
          thrown = { name: error.name, message: error.message };
        }
        report({ thrown, isCapturing: addon.isCapturing(),
          branches: addon.getStats().branchStats });
      `, { switches });
      assert.equal(thrown.name, 'Error');
      // The words are GStreamer's own.
      assert.match(thrown.message,
        new RegExp(`^no property "${property}" in element`));
      assert.equal(isCapturing, false);
      assert.deepEqual(branches, []);
    });
}

test('an encoder lost in mid-stream is an error event, then all goes on',
  async () => {
    const result = await runHardware(`
      const collected = collect();
      addon.captureSetup(hardwareRequest());
      await until(() => collected.events.some(({ state }) => state === 'error'),
        'the error event');
      const isCapturing = addon.isCapturing();
      const broken = addon.getStats();
      const errors = collected.events.filter(({ state }) => state === 'error');
      addon.stopCapture();
      const stopped = addon.getStats();
      await until(() => collected.events.at(-1).state === 'stopped', 'the end');
      const events = [...collected.events];
      switchStandins('');
      const count = collected.packets.length;
      addon.captureSetup(hardwareRequest());
      const packetsNow = (index) => collected.packets.slice(count)
        .filter(({ branchIndex }) => branchIndex === index);
      await until(
        () => [0, 1, 2].every((index) => packetsNow(index).length > 2),
        'packets of the next capture');
      const next = addon.getStats();
      addon.stopCapture();
      report({ packets: collected.packets.slice(0, count), isCapturing, broken,
        errors, stopped, events, next });
    `, { switches: 'fail-after=10' });
    // The encoder names the cause first; others may report what it led to.
    const cause = 'video: The encoder session was lost';
    assert.equal(result.errors[0].reason, cause);
    assert.equal(result.errors[0].width, 640);
    assert.equal(result.errors[0].height, 360);
    assert.ok(result.broken.gstBusErrors >= 1);
    assert.match(result.broken.lastGstBusError, /^video: /);
    assert.equal(result.isCapturing, true, 'only the host stops a capture');
    // The tenth picture of one branch was the last of all.
    const counts = [0, 1, 2].map((index) => result.packets
      .filter(({ branchIndex }) => branchIndex === index).length);
    assert.equal(Math.max(...counts), 9, `${counts}`);

    assert.equal(result.events[0].state, 'ready');
    assert.equal(result.events.at(-1).reason, 'stopCapture');
    assert.equal(result.stopped.capturing, false);
    assert.deepEqual(result.stopped.branchStats, []);
    assert.match(result.stopped.lastGstBusError, /^video: /,
      'the text stays until the next setup');
    assert.equal(result.next.gstBusErrors, 0);
    assert.equal(result.next.lastGstBusError, '');
  });

test('a process may end while the hardware path runs', async () => {
  const { events } = await runHardware(`
    const collected = collect();
    addon.captureSetup(hardwareRequest());
    await until(() => collected.ofBranch(2).length > 2, 'packets');
    report({ events: collected.events });
    process.exit();
  `);
  assert.deepEqual(events.map(({ state }) => state), ['ready']);
});

test('captures that follow each other leave no descriptor behind', async () => {
  const { counts } = await runHardware(`
    import { readdirSync } from 'node:fs';
    const collected = collect();
    const counts = [];
    for (let round = 0; round < 4; round += 1) {
      const seen = collected.packets.length;
      addon.captureSetup(hardwareRequest());
      await until(() => collected.packets.slice(seen).filter(
        ({ branchIndex }) => branchIndex === 2).length > 1, 'packets');
      addon.stopCapture();
      counts.push(readdirSync('/proc/self/fd').length);
    }
    report({ counts });
  `);
  assert.ok(counts.at(-1) <= counts[1], `${counts}`);
});
