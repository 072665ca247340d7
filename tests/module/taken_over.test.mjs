import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { startNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { until } from '../support/until.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });

const root = JSON.stringify(fileURLToPath(repositoryRoot));

// Workers do what they are told by a message, and end by themselves when
// nothing is left for them to do.
const preparation = `
  import { once } from 'node:events';
  import { createRequire } from 'node:module';
  import { Worker } from 'node:worker_threads';
  const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
  const say = (text) => console.log(text);
  const startWorker = (name) => {
    const worker = new Worker(\`
      const addon = require(${root});
      const { parentPort } = require('node:worker_threads');
      parentPort.on('message', ([task, request]) => {
        if (task === 'start') addon.captureSetup(request);
        if (task === 'stop') addon.stopCapture();
        if (task === 'leave') parentPort.unref();
        parentPort.postMessage(task);
      });
    \`, { eval: true, execArgv: [] });
    worker.on('exit', () => say(name + ' has ended'));
    return async (task) => {
      worker.postMessage([task, request]);
      await once(worker, 'message');
    };
  };
  // What keeps the process is the module alone.
  process.stdin.unref();
`;

/** A child that ends when it has said and done everything. */
async function ends(body, said) {
  const child = startNode(preparation + body, { display: context.display });
  const { code, isTimedOut, stdout, stderr } = await child.end(20_000);
  assert.equal(isTimedOut, false, `it stays: ${stdout}${stderr.slice(-500)}`);
  assert.equal(code, 0, stderr);
  assert.deepEqual(stdout.trim().split('\n'), said);
}

/** A child that has come to its last line, and lives on until it is killed. */
async function stays(body, lastLine) {
  const child = startNode(preparation + body, { display: context.display });
  let hasEnded = false;
  child.child.once('close', () => { hasEnded = true; });
  await until(() => hasEnded || child.stdout.text.includes(lastLine),
    lastLine, 20_000);
  // A loop with nothing to do ends at once; a second is many rounds of it.
  await new Promise((resolve) => { setTimeout(resolve, 1_000); });
  assert.equal(hasEnded, false, child.stderr.text);
  child.child.kill('SIGKILL');
  await child.end(20_000);
}

const mainToWorker = `
  addon.captureSetup(request);
  const worker = startWorker('the worker');
  await worker('start');
  await worker('leave');
`;

test('what a worker took over and goes on with keeps the process', () =>
  stays(`${mainToWorker} say('taken over');`, 'taken over'));

test('what a worker took over and stopped keeps no process', () =>
  ends(`${mainToWorker} addon.stopCapture(); say('stopped');`,
    ['stopped', 'the worker has ended']));

const workerToMain = `
  const worker = startWorker('the worker');
  await worker('start');
  await worker('leave');
  addon.captureSetup(request);
`;

test('what was taken from a worker lets it end, and keeps the taker', () =>
  stays(workerToMain, 'the worker has ended'));

test('what was taken from a worker and stopped keeps neither', () =>
  ends(`${workerToMain}
    await until(() => true, 'a turn');
    setTimeout(() => { addon.stopCapture(); say('stopped'); }, 3_000);`,
  ['the worker has ended', 'stopped']));

const throughThree = `
  addon.captureSetup(request);
  const first = startWorker('the first');
  const second = startWorker('the second');
  await first('start');
  await second('start');
  await first('leave');
  await second('leave');
`;

test('of three that took it in turn the last is kept', () =>
  stays(throughThree, 'the first has ended'));

test('of three that took it in turn none is kept after the stop', () =>
  ends(`${throughThree}
    setTimeout(() => { addon.stopCapture(); say('stopped'); }, 3_000);`,
  ['the first has ended', 'stopped', 'the second has ended']));

const loadedAgain = `
  const require = createRequire(${root} + '/');
  const load = () => {
    for (const key of Object.keys(require.cache)) delete require.cache[key];
    return require(${root});
  };
  const first = load();
  const second = load();
  first.captureSetup(request);
  second.captureSetup(request);
`;

test('a module that was loaded again keeps the process by its capture', () =>
  stays(`${loadedAgain} say(first === second ? 'one' : 'two');`, 'two'));

test('a module that was loaded again keeps no process after the stop', () =>
  ends(`${loadedAgain} second.stopCapture(); say('stopped');`, ['stopped']));

test('the event of a stop by another thread still arrives', () =>
  ends(`
    addon.onCaptureLifecycle(({ state }) => say(state));
    addon.captureSetup(request);
    await until(() => addon.isCapturing(), 'the capture');
    const worker = startWorker('the worker');
    await worker('stop');
    await worker('leave');`,
  ['ready', 'stopped', 'the worker has ended']));
