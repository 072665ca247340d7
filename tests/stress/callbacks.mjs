// Callbacks that do what no callback should: throw, block for seconds, stop
// the capture or start another one from inside.
import { addon } from '../support/addon.mjs';
import {
  blockThisThread, callAtRandom, castRequest, choose, connectToPipeWire, job,
  pause, random, readFigures, readFiguresAgain, demand, screenRequest,
  trendOf, tellProgress, tellResult, untilCaptured,
  withTargets,
} from './inside.mjs';

class OwnError extends Error {}

let thrown = 0;
process.on('uncaughtException', (error) => {
  if (!(error instanceof OwnError)) {
    console.error(error);
    process.exit(1);
  }
  thrown += 1;
});

const slots = ['onFragmentReady', 'onAudioSamples', 'onCaptureLifecycle'];
let connection;

async function makeRequest() {
  connection?.close();
  connection = undefined;
  if (random() < 0.5) return withTargets(screenRequest(3));
  connection = await connectToPipeWire();
  return withTargets(castRequest(connection, 3));
}

const ignoreAll = () => slots.forEach((name) => addon[name](() => {}));

/** Whether every branch, sound and the events still reach good callbacks. */
async function requireHealth() {
  addon.stopCapture();
  const branches = new Set();
  const states = [];
  let sounds = 0;
  addon.onFragmentReady(({ branchIndex }) => branches.add(branchIndex));
  addon.onAudioSamples(() => { sounds += 1; });
  addon.onCaptureLifecycle(({ state }) => states.push(state));
  addon.captureSetup(await makeRequest());
  await untilCaptured(() => branches.size === 3 && sounds > 0, 'packets');
  addon.stopCapture();
  await untilCaptured(() => states.length === 2, 'two events');
  demand(states.join() === 'ready,stopped', `the events were ${states}`);
}

async function throwFromAll() {
  const before = thrown;
  for (const name of slots) {
    addon[name](() => { throw new OwnError(name); });
  }
  addon.captureSetup(await makeRequest());
  await untilCaptured(() => thrown > before + 20, 'twenty errors');
}

async function blockForSeconds() {
  let blocked = 0;
  ignoreAll();
  addon.captureSetup(await makeRequest());
  addon[choose(slots.slice(0, 2))](() => {
    if (blocked < 2) blockThisThread(1_500);
    blocked += 1;
  });
  await untilCaptured(() => blocked > 10, 'calls after the blocked ones');
}

/** Does `what` inside of the callback of one slot, once. */
async function insideOf(name, what) {
  let isDone = false;
  ignoreAll();
  addon.captureSetup(await makeRequest());
  addon[name](() => {
    if (isDone) return;
    isDone = true;
    what();
  });
  if (name === 'onCaptureLifecycle') addon.stopCapture();
  await untilCaptured(() => isDone, `a call of ${name}`);
}

const misdeeds = [
  throwFromAll,
  blockForSeconds,
  ...slots.flatMap((name) => [
    async function stopInside() {
      await insideOf(name, () => addon.stopCapture());
      demand(!addon.isCapturing(), 'a capture after a stop inside');
    },
    async function startInside() {
      const request = withTargets(screenRequest(choose([1, 3])));
      await insideOf(name, () => addon.captureSetup(request));
      demand(addon.isCapturing(), 'no capture after a setup inside');
    },
    async function replaceAndCallInside() {
      await insideOf(name, () => {
        ignoreAll();
        for (let call = 0; call < 5; call += 1) callAtRandom();
      });
    },
  ]),
];

async function readStopped() {
  connection?.close();
  connection = undefined;
  await pause(20);
  return readFigures();
}

async function runRound() {
  for (const misdeed of misdeeds) {
    await misdeed();
    tellProgress(misdeed.name);
  }
  await requireHealth();
}

await runRound();
const before = await readStopped();
const memory = [before.memory];
for (let round = 1; round <= job.count; round += 1) {
  await runRound();
  memory.push((await readStopped()).memory);
}
const after = await readFiguresAgain(before);
tellResult({
  before,
  after,
  slope: trendOf(memory),
  slopeUnit: `round of ${misdeeds.length} misdeeds`,
  memory,
  notes: `${misdeeds.length * (job.count + 1)} misdeeds, ` +
    `${thrown} errors thrown`,
});
