// Captures that are started, ended and started over one another at random
// moments, with every other function called in between.
import { addon } from '../support/addon.mjs';
import {
  callAtRandom, callCounts, castRequest, choose, connectToPipeWire, job, pause,
  random, readFigures, readFiguresAgain, demand, screenRequest, trendOf,
  tellProgress, tellResult, withTargets,
} from './inside.mjs';

let packets = 0;
let starts = 0;
addon.onFragmentReady(() => { packets += 1; });
addon.onAudioSamples(() => { packets += 1; });
addon.onCaptureLifecycle(({ state, reason }) => {
  if (state === 'error') throw new Error(`an error event: ${reason}`);
});

let connection;

/** One capture in five is a screen cast, one in five has sound. */
async function makeRequest() {
  const branchCount = choose([1, 1, 3]);
  const isCast = random() < 0.2;
  const hasSound = random() < 0.2;
  const previous = connection;
  connection = isCast ? await connectToPipeWire() : undefined;
  const request = isCast
    ? castRequest(connection, branchCount) : screenRequest(branchCount);
  return {
    request: hasSound
      ? withTargets(request, job.sources.audioTargets.slice(
        0, choose([1, 2]))) : request,
    // A host closes the descriptor when its capture has ended.
    closePrevious: () => previous?.close(),
  };
}

async function runCycle() {
  const { request, closePrevious } = await makeRequest();
  addon.captureSetup(request);
  starts += 1;
  closePrevious();
  demand(addon.isCapturing(), 'no capture after a setup');
  // Often not even one picture has come by then.
  if (random() < 0.8) await pause(50);
  for (let call = choose([0, 1, 3]); call > 0; call -= 1) callAtRandom();
  // Otherwise the next setup has to end this capture.
  if (random() < 0.8) {
    addon.stopCapture();
    demand(!addon.isCapturing(), 'a capture after a stop');
    if (random() < 0.1) addon.stopCapture();
    if (random() < 0.2) callAtRandom();
  }
}

async function readStopped() {
  addon.stopCapture();
  connection?.close();
  connection = undefined;
  await pause(20);
  return readFigures();
}

// The first captures load libraries and fill pools that stay.
const warmUp = Math.max(20, Math.round(job.count / 10));
const step = Math.max(1, Math.round(job.count / 40));
for (let cycle = 0; cycle < warmUp; cycle += 1) await runCycle();
const before = await readStopped();
const memory = [before.memory];
for (let cycle = 1; cycle <= job.count; cycle += 1) {
  await runCycle();
  if (cycle % step === 0) memory.push((await readStopped()).memory);
  tellProgress(`cycle ${cycle}`);
}
await readStopped();
const after = await readFiguresAgain(before);
tellResult({
  before,
  after,
  slope: trendOf(memory) / step * 1000,
  slopeUnit: '1,000 cycles',
  memory,
  notes: `${starts} captures, ${packets} packets, ` +
    Object.entries(callCounts).map(([name, count]) => `${count} ${name}`)
      .join(', '),
});
