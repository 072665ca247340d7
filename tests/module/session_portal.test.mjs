import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdirSync, readFileSync } from 'node:fs';
import { describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { Worker } from 'node:worker_threads';
import { startCapture } from 'linux-capture-addon/session';
import { addon, repositoryRoot } from '../support/addon.mjs';
import { usePortal } from '../support/portal_session.mjs';

const session = usePortal();

/** Runs `use` while a portal answers that behaves as told. */
const withPortal = (behaviour, use) =>
  session.withPortal({ behaviour }, use);

const start = (source = {}, options = {}) => startCapture({
  source: { type: 'portal', ...source }, video: { fps: 10 }, ...options,
});

/** What a worker is answered that starts a session. */
async function codeOfOtherThread() {
  const worker = new Worker(`
    const { parentPort } = require('node:worker_threads');
    const { startCapture } =
      require(${JSON.stringify(fileURLToPath(repositoryRoot))} + '/session');
    startCapture({ source: { type: 'portal' } }).then(
      () => parentPort.postMessage('started'),
      (error) => parentPort.postMessage(error.code));
  `, { eval: true, execArgv: [] });
  const [answer] = await once(worker, 'message');
  await worker.terminate();
  return answer;
}

test('an open dialog is in the way of every other thread', async () => {
  await withPortal(['--mood', 'Start=wait'], async (portal) => {
    const controller = new AbortController();
    const started = start({}, { signal: controller.signal });
    await portal.waitFor(/^call Start/m, 'the dialog is open');
    assert.equal(await codeOfOtherThread(), 'ERR_CAPTURE_ACTIVE');
    controller.abort();
    await assert.rejects(started, { code: 'ABORT_ERR' });
  });
  await withPortal([], async () => {
    assert.equal(await codeOfOtherThread(), 'started');
  });
});

test('a granted stream is captured, and given back at the stop', async () => {
  await withPortal(['--restore-token', 'new'], async (portal) => {
    const heard = [];
    const capture = await start({
      types: ['monitor'], persist: 'permanent', restoreToken: 'old',
      cursor: 'hidden', onRestoreToken: (token) => heard.push(token),
    });
    try {
      assert.deepEqual(heard, ['new']);
      assert.equal(capture.restoreToken, 'new');
      assert.deepEqual(capture.source,
        { type: 'portal', kind: 'monitor', label: null });
      assert.deepEqual(capture.branches,
        [{ branch: 0, width: 160, height: 90, fps: 10 }]);
      const { value } = await capture.video().next();
      assert.equal(value.isKeyframe, true);
    } finally {
      await capture.stop();
    }
    assert.match(portal.output.text, /call SelectSources .*'old'/);
    await portal.waitFor(/^closed .*session/m, 'the session is closed');
  });
});

test('what a listener of restore tokens throws ends the start', async () => {
  await withPortal(['--restore-token', 'new'], async (portal) => {
    const listeners = [['no function', 'ERR_CAPTURE_ARGUMENT'],
      [() => { throw new Error('no room'); }, 'ERR_CAPTURE_PROGRAM']];
    for (const [onRestoreToken, code] of listeners) {
      await assert.rejects(start({ onRestoreToken }), { code });
    }
    await portal.waitFor(/^closed .*session/m, 'the session is closed');
  });
});

test('a restore token is no argument of any program', async () => {
  await withPortal(['--mood', 'Start=wait'], async (portal) => {
    const controller = new AbortController();
    const started = start({ restoreToken: 'secret-77', persist: 'permanent' },
      { signal: controller.signal });
    await portal.waitFor(/^call Start/m, 'the dialog is open');
    assert.match(portal.output.text, /call SelectSources .*'secret-77'/);
    // What "ps" shows to everybody.
    const lines = readdirSync('/proc').filter((name) => /^\d+$/.test(name))
      .map((pid) => {
        try {
          return readFileSync(`/proc/${pid}/cmdline`, 'utf8');
        } catch {
          return '';
        }
      });
    assert.ok(lines.some((line) => line.includes('--restore-token-stdin')));
    assert.ok(!lines.some((line) => line.includes('secret-77')));
    controller.abort();
    await assert.rejects(started, { name: 'AbortError' });
  });
});

test('a restore token of several lines is refused', async () => {
  await assert.rejects(start({ restoreToken: 'one\ntwo' }),
    { code: 'ERR_CAPTURE_ARGUMENT',
      message: 'source.restoreToken must be one line' });
});

test('a session that the desktop closes is no error', async () => {
  await withPortal([], async (portal) => {
    const capture = await start();
    portal.closeSession();
    const { reason, error, detail } = await capture.ended;
    assert.equal(reason, 'source-ended');
    assert.equal(error, null);
    assert.match(detail, /closed/);
    assert.equal(addon.isCapturing(), false);
  });
});

describe('no stream', () => {
  const cases = [
    ['the user cancels', ['--code', 'Start=1'],
      'ERR_CAPTURE_PORTAL_CANCELLED'],
    ['the portal fails', ['--code', 'Start=2'], 'ERR_CAPTURE_PORTAL_DENIED'],
    ['there are no screen casts', ['--no-screen-cast'],
      'ERR_CAPTURE_PORTAL_MISSING'],
  ];
  for (const [what, behaviour, code] of cases) {
    test(`because ${what}`, async () => {
      await withPortal(behaviour, async () => {
        await assert.rejects(start(), { name: 'CaptureError', code });
      });
    });
  }

  test('because there is no portal', async () => {
    await assert.rejects(start(), { code: 'ERR_CAPTURE_PORTAL_MISSING' });
  });

  test('because the signal fires while the dialog is open', async () => {
    await withPortal(['--mood', 'Start=wait'], async (portal) => {
      const controller = new AbortController();
      const started = start({}, { signal: controller.signal });
      await portal.waitFor(/^call Start/m, 'the dialog is open');
      controller.abort();
      await assert.rejects(started, { name: 'AbortError' });
      await portal.waitFor(/^closed /m, 'the request is closed');
    });
  });
});

test('nothing of it stands in the way of the next capture', async () => {
  await withPortal([], async () => {
    for (let round = 0; round < 3; round += 1) {
      const capture = await start();
      const { done } = await capture.video().next();
      assert.equal(done, false);
      await capture.stop();
    }
  });
});
