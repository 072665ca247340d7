import assert from 'node:assert/strict';
import { afterEach, beforeEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { enterDesktop, requestOf, withStream } from
  '../support/desktop_streams.mjs';
import { until } from '../support/until.mjs';

// One desktop for each test: they end it, and version 0.7 of the portal's
// backend may itself crash when a session is closed while its stream is read.
let desktop;
beforeEach(async () => {
  desktop = await enterDesktop();
});
afterEach(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

test('the end of the stream reaches the host as an error', () =>
  withStream(desktop, async ({ program, report, fd }) => {
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

test('a compositor that dies reaches the host as an error', () =>
  withStream(desktop, async ({ program, report, fd }) => {
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
