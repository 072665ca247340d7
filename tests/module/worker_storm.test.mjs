import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { runNode } from '../support/child.mjs';

const root = JSON.stringify(fileURLToPath(repositoryRoot));

// Each worker calls functions that fail, for as long as it lives.
const preparation = `
  import { Worker } from 'node:worker_threads';
  import { once } from 'node:events';
  const startWorker = () => new Worker(\`
    const addon = require(${root});
    const { parentPort } = require('node:worker_threads');
    const calls = [
      () => addon.captureSetup(),
      () => addon.captureSetup({ source: { backend: 'x11' } }),
      () => addon.setBitrate(),
      () => addon.setBitrate(1_000_000),
      () => addon.updateAudioTargets(),
      () => addon.updateAudioTargets({ pipeWireTargetObjects: [1] }),
      () => addon.duplicateFdFromPid(0, 0),
      () => addon.duplicateFdFromPid(1),
      () => addon.onFragmentReady(),
      () => addon.onAudioSamples(1),
      () => addon.onCaptureLifecycle(() => {}),
      () => addon.forceKeyframe(),
      () => addon.getStats(),
      () => addon.resetStats(),
      () => addon.isCapturing(),
      () => addon.listWindows(),
      () => addon.listMonitors(),
      () => addon.stopCapture(),
    ];
    parentPort.postMessage('begun');
    for (;;) for (const call of calls) try { call(); } catch {}
  \`, { eval: true, execArgv: [], stderr: true });
`;

test('250 workers that are ended inside failing calls end no process',
  async () => {
    const { code, signal, isTimedOut, stdout, stderr } = await runNode(`
      ${preparation}
      for (let round = 0; round < 125; round += 1) {
        await Promise.all([0, 1].map(async (each) => {
          const worker = startWorker();
          worker.stderr.resume();
          await once(worker, 'message');
          // At another point of the calls each time.
          await new Promise((resolve) => {
            setTimeout(resolve, (round + each * 3) % 7);
          });
          await worker.terminate();
        }));
      }
      console.log('all have ended');
    `, { timeoutMs: 240_000 });
    assert.equal(isTimedOut, false);
    assert.equal(signal, null, stderr.slice(-1000));
    assert.equal(code, 0, stderr.slice(-1000));
    assert.equal(stdout, 'all have ended\n');
  });

test('a process that ends inside the failing calls of its workers does so',
  async () => {
    for (let time = 0; time < 12; time += 1) {
      const { code, signal, isTimedOut, stderr } = await runNode(`
        ${preparation}
        const workers = Array.from({ length: 5 }, startWorker);
        for (const worker of workers) worker.stderr.resume();
        await Promise.all(workers.map((worker) => once(worker, 'message')));
        setTimeout(() => process.exit(7), ${time % 5});
      `, { timeoutMs: 60_000 });
      assert.equal(isTimedOut, false);
      assert.equal(signal, null, stderr.slice(-1000));
      assert.equal(code, 7, stderr.slice(-1000));
    }
  });
