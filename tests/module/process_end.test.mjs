import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });

const capture = `
  const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
`;

async function run(body) {
  const child = await runNode(capture + body, { display: context.display });
  assert.equal(child.isTimedOut, false, `hangs: ${child.stdout}`);
  assert.equal(child.signal, null, child.stderr);
  return child;
}

test('process.exit during a capture ends with the given code', async () => {
  const child = await run(`
    const { packets } = collect();
    addon.captureSetup(request);
    await until(() => packets.length > 5, 'packets');
    process.exit(7);
  `);
  assert.equal(child.code, 7);
});

test('process.exit in a callback ends with the given code', async () => {
  const child = await run(`
    addon.onFragmentReady(() => process.exit(8));
    addon.captureSetup(request);
  `);
  assert.equal(child.code, 8);
});

test('registered callbacks alone keep no process alive', async () => {
  const child = await run('collect();');
  assert.equal(child.code, 0);
});

test('a process ends by itself after it received everything', async () => {
  const child = await run(`
    let received = 0;
    addon.onFragmentReady(() => {
      received += 1;
      if (received === 5) addon.stopCapture();
    });
    addon.onCaptureLifecycle(({ state, reason }) => {
      console.log(state, reason);
    });
    process.on('exit', () => {
      const { videoBridgeQueuedPackets } = addon.getStats();
      console.log(received >= 5, received === videoBridgeQueuedPackets);
    });
    addon.captureSetup(request);
  `);
  assert.equal(child.code, 0);
  assert.equal(child.stdout, 'ready linux-x11-capture-started\n' +
    'stopped stopCapture\ntrue true\n');
});

test('events queued by the last statement still arrive', async () => {
  const child = await run(`
    addon.onCaptureLifecycle(({ state }) => console.log(state));
    addon.captureSetup(request);
    addon.stopCapture();
  `);
  assert.equal(child.code, 0);
  assert.equal(child.stdout, 'ready\nstopped\n');
});

test('a running capture keeps the process alive until it stops', async () => {
  const child = await run(`
    process.on('beforeExit', () => console.log('nothing left to do'));
    // This timer keeps nothing alive: it fires only when something else does.
    setTimeout(() => {
      console.log('still capturing', addon.isCapturing());
      addon.stopCapture();
    }, 1_000).unref();
    addon.captureSetup(request);
  `);
  assert.equal(child.code, 0);
  assert.equal(child.stdout, 'still capturing true\nnothing left to do\n');
});

test('an exception in a callback ends the process like any other', async () => {
  const child = await run(`
    addon.onFragmentReady(() => {
      throw new Error('thrown by the host');
    });
    addon.captureSetup(request);
  `);
  assert.equal(child.code, 1);
  assert.match(child.stderr, /Error: thrown by the host/);
});

test('uncaughtException sees an exception in a callback', async () => {
  const child = await run(`
    let caught = 0;
    process.on('uncaughtException', ({ message }) => {
      caught += 1;
      if (caught < 3) return;
      console.log(message);
      addon.stopCapture();
    });
    addon.onFragmentReady(() => {
      if (caught < 3) throw new Error('thrown by the host');
    });
    addon.captureSetup(request);
  `);
  assert.equal(child.code, 0, child.stderr);
  assert.equal(child.stdout, 'thrown by the host\n');
});

test('an exception in a lifecycle callback is seen too', async () => {
  const child = await run(`
    process.on('uncaughtException', ({ message }) => console.log(message));
    addon.onCaptureLifecycle(({ state }) => {
      throw new Error('at ' + state);
    });
    addon.captureSetup(request);
    addon.stopCapture();
  `);
  assert.equal(child.code, 0, child.stderr);
  assert.equal(child.stdout, 'at ready\nat stopped\n');
});
