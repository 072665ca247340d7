// A long capture with sound, during which this thread stands still at random.
// What arrives is written to one file for each branch and checked on the way.
import { closeSync, openSync, writeSync } from 'node:fs';
import path from 'node:path';
import { addon } from '../support/addon.mjs';
import { FrameNumbers } from '../support/frame_numbers.mjs';
import {
  blockThisThread, castRequest, connectToPipeWire, job, pause, random,
  readFigures, readFiguresAgain, screenRequest, slopeOf, tellProgress,
  tellResult, untilCaptured, withSystemSound,
} from './inside.mjs';

// At this rate the queue is full after two seconds.
const fps = 90;
const branchCount = 3;
const longestStallMs = 3_000;
const warmUpMinutes = 10;
const samplesOfDrift = 40;

const branches = Array.from({ length: branchCount }, (_, index) => ({
  file: openSync(path.join(job.folder, `branch-${index}.h264`), 'w'),
  numbers: new FrameNumbers(),
  packets: 0,
  keyframes: 0,
  broken: 0,
}));
let sounds = 0;
const events = [];
const stalls = { count: 0, seconds: 0 };

function stall(milliseconds) {
  blockThisThread(milliseconds);
  stalls.count += 1;
  stalls.seconds += milliseconds / 1000;
}

let connection;

async function start() {
  connection = job.source === 'cast' ? await connectToPipeWire() : undefined;
  addon.captureSetup(withSystemSound(connection
    ? castRequest(connection, branchCount, fps)
    : screenRequest(branchCount, fps)));
}

async function end() {
  addon.stopCapture();
  connection?.close();
  await pause(20);
}

// The first capture loads what stays loaded, and Node.js keeps one descriptor
// in reserve from the first time that it writes to a stream.
tellProgress('started');
await start();
await untilCaptured(() => addon.getStats().audioPacketsCaptured > 0, 'sound');
await end();
const idle = readFigures();

addon.onFragmentReady(({ branchIndex, payload, isKeyFrame }) => {
  const branch = branches[branchIndex];
  branch.packets += 1;
  branch.keyframes += isKeyFrame ? 1 : 0;
  branch.broken += branch.numbers.take(payload) ? 0 : 1;
  writeSync(branch.file, payload);
});
addon.onAudioSamples(() => { sounds += 1; });
addon.onCaptureLifecycle(({ state }) => events.push(state));

await start();
await untilCaptured(() => sounds > 0 &&
  branches.every(({ packets }) => packets > 0), 'every branch and sound');
// The longest one first: it fills the queue to its limit once, so that what
// this takes is part of the memory at the start.
stall(longestStallMs);
await pause(4_000);

/** How far sound and picture are apart, over ten seconds. */
async function meanDriftUs() {
  let sum = 0;
  for (let step = 0; step < samplesOfDrift; step += 1) {
    await pause(10_000 / samplesOfDrift);
    sum += addon.getStats().audioVideoDriftUs;
  }
  return sum / samplesOfDrift;
}

const before = readFigures();
const memory = [];
const driftsUs = [];
const deadline = performance.now() + job.minutes * 60_000;
while (performance.now() < deadline) {
  driftsUs.push(Math.round(await meanDriftUs()));
  memory.push(readFigures().memory);
  if (random() < 0.7) stall(random() * longestStallMs);
  tellProgress(`${Math.round((deadline - performance.now()) / 1000)} s to go`);
}
const running = readFigures();
const { branchStats } = addon.getStats();
await end();
await untilCaptured(() => events.includes('stopped'), 'the stopped event');
const stats = addon.getStats();
const after = await readFiguresAgain(idle);
branches.forEach(({ file }) => closeSync(file));

/** What was sampled once every pool and cache had been filled. */
function afterWarmUp(samples) {
  const share = Math.min(warmUpMinutes / job.minutes, 0.5);
  return samples.slice(Math.floor(samples.length * share));
}

tellResult({
  before,
  running,
  idle,
  after,
  slopePerHour: slopeOf(afterWarmUp(memory)) * memory.length / job.minutes * 60,
  driftsUs,
  memory,
  stalls,
  sounds,
  events,
  branchStats,
  stats,
  branches: branches.map(
    ({ packets, keyframes, broken }) => ({ packets, keyframes, broken })),
});
