// Callbacks that are replaced all the time while three branches at 60 pictures
// a second and sound arrive, with the other functions called in between.
import { addon } from '../support/addon.mjs';
import {
  callAtRandom, callCounts, castRequest, choose, connectToPipeWire, job, pause,
  random, readFigures, readFiguresAgain, demand, screenRequest, trendOf,
  tellProgress, tellResult, untilCaptured,
  withTargets,
} from './inside.mjs';

const slots = ['onFragmentReady', 'onAudioSamples', 'onCaptureLifecycle'];
const delivered = Object.fromEntries(slots.map((name) => [name, 0]));
const current = {};
let late = 0;
let audioMoves = 0;

/** Registers a function that knows when it has been replaced. */
function replace(name) {
  const token = Symbol(name);
  current[name] = token;
  addon[name](() => {
    delivered[name] += 1;
    if (current[name] !== token) late += 1;
  });
}

/** Waits until every branch and the sound have come through once more. */
async function receiveEverything(request) {
  const branches = new Set();
  let sounds = 0;
  addon.onFragmentReady(({ branchIndex }) => branches.add(branchIndex));
  addon.onAudioSamples(() => { sounds += 1; });
  if (request !== undefined) addon.captureSetup(request);
  await untilCaptured(() => branches.size === 3 && sounds > 0,
    'three branches and sound');
}

const memory = [];

async function storm(request, count) {
  await receiveEverything(request);
  for (const name of slots) replace(name);
  for (let done = 1; done <= count; done += 1) {
    replace(choose(slots));
    // Several in a row meet a queue of the one before; others let it empty.
    if (random() < 0.5) await pause(8);
    if (random() < 0.1) {
      callAtRandom(
        ['getStats', 'resetStats', 'forceKeyframe', 'setBitrate']);
    }
    // It takes a tenth of a second, so it is called less often.
    if (random() < 0.01) {
      callAtRandom(['updateAudioTargets']);
      audioMoves += 1;
    }
    if (done % 50 === 0) tellProgress(`replacement ${done}`);
  }
  await receiveEverything();
  const stats = addon.getStats();
  demand(stats.openH264Errors === 0, stats.lastOpenH264Error);
  demand(stats.gstBusErrors === 0, stats.lastGstBusError);
  addon.stopCapture();
  await pause(20);
  memory.push(readFigures().memory);
}

let connection;
async function castWithSound() {
  connection?.close();
  connection = await connectToPipeWire();
  return withTargets(castRequest(connection, 3));
}

const makeRequest = (round) => round % 2 === 0
  ? withTargets(screenRequest(3)) : castWithSound();

async function readStopped() {
  connection.close();
  await pause(20);
  return readFigures();
}

// Loads what stays loaded and fills what is kept: with either kind of source
// and once more after the other one, which finds the memory cut up.
const warmUp = Math.min(250, job.count / 20);
for (let round = 0; round < 4; round += 1) {
  await storm(await makeRequest(round), warmUp);
}
const before = await readStopped();
memory.length = 0;
const storms = Math.max(2, Math.round(job.count / 500));
for (let round = 0; round < storms; round += 1) {
  await storm(await makeRequest(round), Math.round(job.count / storms));
}
await readStopped();
const after = await readFiguresAgain(before);
demand(late === 0, `${late} deliveries to a callback that was replaced`);
tellResult({
  before,
  after,
  slope: trendOf(memory) * storms / job.count * 1000,
  slopeUnit: '1,000 replacements',
  memory,
  notes: `${delivered.onFragmentReady} pictures and ` +
    `${delivered.onAudioSamples} sounds to the replaced ones, ` +
    `${audioMoves} moves of the sound, ${callCounts.getStats} getStats`,
});
