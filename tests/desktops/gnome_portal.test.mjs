import assert from 'node:assert/strict';
import { closeSync } from 'node:fs';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect, runCapture } from '../support/capture.mjs';
import { readNumber, typicalColourError } from '../support/picture.mjs';
import { smallCapture } from '../support/requests.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startGnomePortal } from './support/gnome_portal.mjs';
import { startMutter } from './support/mutter.mjs';

let desktop;
let portal;
before(async () => {
  desktop = await startMutter();
  enterDesktop(desktop);
  await desktop.startWindow({ ...desktop.size, isFullscreen: true });
  portal = await startGnomePortal(desktop);
});
after(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

/** Runs `use` with what the portal grants for a choice that was kept. */
async function withGrant(use) {
  const token = await portal.keepChoice();
  const program = portal.startPortalProgram(['--persist', 'permanent'], token);
  try {
    const report = await program.report();
    const fd = addon.duplicateFdFromPid(report.pid, report.pipeWireFd);
    try {
      return await use({ program, report, request: {
        source: { backend: 'portal', kind: report.kind },
        portal: { ...report, pipeWireFd: fd },
        capture: { ...smallCapture, ...desktop.size, fps: 30,
          topology: { mode: 'direct', branches: [] } },
        audio: { mode: 'none' },
      } });
    } finally {
      addon.stopCapture();
      closeSync(fd);
    }
  } finally {
    await program.stop();
  }
}

test('GNOME\'s portal grants a kept choice, and its monitor is captured', () =>
  withGrant(async ({ report, request }) => {
    assert.equal(report.restoreTokenUsed, true);
    assert.deepEqual([report.sourceType, report.kind], [1, 'monitor']);
    assert.deepEqual(report.streamSize, desktop.size);
    const { packets, events } = await runCapture(request,
      { seconds: 1.5, branchCount: 1 });
    assert.deepEqual(events.map(({ state }) => state), ['ready', 'stopped']);
    const pictures = await decodeFlawlessly(packets);
    assert.ok(typicalColourError(pictures) <= 6);
    assert.ok(new Set(pictures.map(readNumber)).size > 5);
  }));

for (const [what, end] of [
  ['a session of GNOME\'s portal that ends', ({ program }) => program.close()],
  ['GNOME\'s portal that is killed', () => portal.backend.kill()],
]) {
  test(`${what} is an error of the capture`, () =>
    withGrant(async (grant) => {
      const collected = collect();
      addon.captureSetup(grant.request);
      await until(() => collected.packets.length > 10, 'pictures');
      await end(grant);
      const error = await until(() => collected.events.find(
        ({ reason }) => reason === 'video: PipeWire target ' +
          `${grant.report.pipeWireNodeId} went away`),
      'the error event that names it', 20_000);
      assert.equal(error.state, 'error');
    }));
}
