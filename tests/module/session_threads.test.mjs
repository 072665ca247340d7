import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { Worker } from 'node:worker_threads';
import { startCapture } from 'linux-capture-addon/session';
import { repositoryRoot } from '../support/addon.mjs';
import { useDisplay } from '../support/display.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 30 } });

const options = {
  source: { type: 'monitor', geometry: { width: 320, height: 180 } },
  video: { fps: 10 },
};

/** A worker that starts a session when told, and says how that went. */
function startWorker() {
  const worker = new Worker(`
    const { parentPort } = require('node:worker_threads');
    const { startCapture } =
      require(${JSON.stringify(fileURLToPath(repositoryRoot))} + '/session');
    let session;
    parentPort.on('message', async ({ task, options }) => {
      try {
        if (task === 'start') session = await startCapture(options);
        if (task === 'stop') await session.stop();
        parentPort.postMessage('done');
      } catch (error) {
        parentPort.postMessage(error.code);
      }
    });
    parentPort.postMessage('ready');
  `, { eval: true, execArgv: [] });
  const told = once(worker, 'message');
  return {
    worker,
    ready: told,
    async tell(task) {
      worker.postMessage({ task, options });
      return (await once(worker, 'message'))[0];
    },
  };
}

async function withWorkers(count, use) {
  const workers = Array.from({ length: count }, startWorker);
  try {
    await Promise.all(workers.map(({ ready }) => ready));
    await use(workers);
  } finally {
    await Promise.all(workers.map(({ worker }) => worker.terminate()));
  }
}

test('of threads that start a session at once one gets it', async () => {
  await withWorkers(4, async (workers) => {
    for (let round = 0; round < 5; round += 1) {
      const answers = await Promise.all(
        workers.map((worker) => worker.tell('start')));
      assert.deepEqual(answers.toSorted(), ['ERR_CAPTURE_ACTIVE',
        'ERR_CAPTURE_ACTIVE', 'ERR_CAPTURE_ACTIVE', 'done']);
      await workers[answers.indexOf('done')].tell('stop');
    }
  });
});

test('a session of another thread is in the way until it ends', async () => {
  await withWorkers(1, async ([worker]) => {
    assert.equal(await worker.tell('start'), 'done');
    await assert.rejects(startCapture(options),
      { code: 'ERR_CAPTURE_ACTIVE' });
    assert.equal(await worker.tell('stop'), 'done');
    const session = await startCapture(options);
    assert.equal(await worker.tell('start'), 'ERR_CAPTURE_ACTIVE');
    await session.stop();
    assert.equal(await worker.tell('start'), 'done');
  });
});

test('a thread that ended with its session is in nobody\'s way', async () => {
  await withWorkers(1, async ([worker]) => {
    assert.equal(await worker.tell('start'), 'done');
  });
  const session = await startCapture(options);
  await session.stop();
});
