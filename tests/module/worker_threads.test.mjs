import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { runNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });

// Quoted twice: once for the process, once for the worker in it.
const root = JSON.stringify(JSON.stringify(fileURLToPath(repositoryRoot)));

const preparation = `
  const { once } = await import('node:events');
  const { Worker } = await import('node:worker_threads');
  const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
  // Evaluated text is a module here too, as it is for the process itself.
  const load = 'import { createRequire } from "node:module";' +
    'import { parentPort } from "node:worker_threads";' +
    'const addon = createRequire(' + ${root} + ')(' + ${root} + ');';
  const startWorker = (body) => new Worker(load + body, { eval: true });
`;

async function run(body) {
  const child = await runNode(preparation + body,
    { display: context.display });
  assert.equal(child.isTimedOut, false, `hangs: ${child.stdout}`);
  assert.equal(child.signal, null, child.stderr);
  assert.equal(child.code, 0, child.stderr);
  return child.stdout;
}

test('a worker terminated during its capture takes the capture down',
  async () => {
    const stdout = await run(`
      const worker = startWorker(
        'addon.onFragmentReady(() => parentPort.postMessage("packet"));' +
        'addon.captureSetup(' + JSON.stringify(request) + ');');
      for (let packet = 0; packet < 5; packet += 1) {
        await once(worker, 'message');
      }
      console.log(addon.isCapturing());
      await worker.terminate();
      console.log(addon.isCapturing());
      const { packets } = collect();
      addon.captureSetup(request);
      await until(() => packets.length > 5, 'packets of an own capture');
      addon.stopCapture();
      console.log('captured again');
    `);
    assert.equal(stdout, 'true\nfalse\ncaptured again\n');
  });

test('a worker that ends by itself after its capture does no harm',
  async () => {
    const stdout = await run(`
      const worker = startWorker(
        'let received = 0;' +
        'addon.onFragmentReady(() => {' +
        '  received += 1;' +
        '  if (received === 5) addon.stopCapture();' +
        '});' +
        'addon.captureSetup(' + JSON.stringify(request) + ');');
      const [code] = await once(worker, 'exit');
      console.log(code, addon.isCapturing());
    `);
    assert.equal(stdout, '0 false\n');
  });

test('a worker that ends leaves the capture of the main thread alone',
  async () => {
    const stdout = await run(`
      const { packets } = collect();
      addon.captureSetup(request);
      await until(() => packets.length > 3, 'packets before the worker');
      const worker = startWorker('addon.getStats();');
      await once(worker, 'exit');
      const before = packets.length;
      await until(() => packets.length > before + 5,
        'packets after the worker');
      console.log(addon.isCapturing());
      addon.stopCapture();
    `);
    assert.equal(stdout, 'true\n');
  });

test('process.exit while a worker captures ends cleanly', async () => {
  await run(`
    const worker = startWorker(
      'addon.onFragmentReady(() => parentPort.postMessage("packet"));' +
      'addon.captureSetup(' + JSON.stringify(request) + ');');
    await once(worker, 'message');
    process.exit(0);
  `);
});
