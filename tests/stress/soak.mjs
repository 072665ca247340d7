// A long capture with sound, during which this thread stands still at random.
// What arrives is written to one file for each branch and checked on the way.
import { closeSync, openSync, writeSync } from 'node:fs';
import path from 'node:path';
import { addon } from '../support/addon.mjs';
import { FrameNumbers } from '../support/frame_numbers.mjs';
import {
  blockThisThread, castRequest, connectToPipeWire, job, pause, random,
  readFigures, readFiguresAgain, screenRequest, trendOf, tellProgress,
  tellResult, untilCaptured, withSystemSound,
} from './inside.mjs';

// At this rate the queue is full after two seconds.
const fps = 90;
const branchCount = 3;
const longestStallMs = 3_000;

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

addon.onFragmentReady(({ branchIndex, payload, isKeyFrame }) => {
  const branch = branches[branchIndex];
  branch.packets += 1;
  branch.keyframes += isKeyFrame ? 1 : 0;
  branch.broken += branch.numbers.take(payload) ? 0 : 1;
  writeSync(branch.file, payload);
});
addon.onAudioSamples(() => { sounds += 1; });
addon.onCaptureLifecycle(({ state }) => events.push(state));

function stall(milliseconds) {
  blockThisThread(milliseconds);
  stalls.count += 1;
  stalls.seconds += milliseconds / 1000;
}

const connection =
  job.source === 'cast' ? await connectToPipeWire() : undefined;
const idle = readFigures();
addon.captureSetup(withSystemSound(connection
  ? castRequest(connection, branchCount, fps)
  : screenRequest(branchCount, fps)));
await untilCaptured(() => sounds > 0 &&
  branches.every(({ packets }) => packets > 0), 'every branch and sound');
// The longest one first: it fills the queue to its limit once, so that what
// this takes is part of the memory at the start.
stall(longestStallMs);
await pause(4_000);

const before = readFigures();
const memory = [];
const end = performance.now() + job.minutes * 60_000;
while (performance.now() < end) {
  await pause(10_000);
  memory.push(readFigures().memory);
  if (random() < 0.7) stall(random() * longestStallMs);
  tellProgress(`${Math.round((end - performance.now()) / 1000)} s to go`);
}
const running = readFigures();
const { branchStats } = addon.getStats();
addon.stopCapture();
connection?.close();
await untilCaptured(() => events.includes('stopped'), 'the stopped event');
const stats = addon.getStats();
const after = await readFiguresAgain(idle);
branches.forEach(({ file }) => closeSync(file));

tellResult({
  before,
  running,
  idle,
  after,
  slopePerHour: trendOf(memory) * memory.length / job.minutes * 60,
  memory,
  stalls,
  sounds,
  events,
  branchStats,
  stats,
  branches: branches.map(
    ({ packets, keyframes, broken }) => ({ packets, keyframes, broken })),
});
