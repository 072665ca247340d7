// What the programs of this folder share. Each is a host of the module in a
// process of its own: it gets its job by the environment, tells its progress
// so that a hang is noticed, and closes with one line of figures.
import { readFileSync, readdirSync } from 'node:fs';
import net from 'node:net';
import { once } from 'node:events';
import { addon } from '../support/addon.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { until } from '../support/until.mjs';

/** { seed, count, sources } as the starter gave it. */
export const job = JSON.parse(process.env.LINUX_CAPTURE_JOB);

const { sources } = job;

/** Numbers from 0 to 1 that are the same for the same seed. */
export function randomFrom(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  };
}

export const random = randomFrom(job.seed);
export const choose = (list) => list[Math.floor(random() * list.length)];

/** Lets the event loop run for a random time: the moment is the stimulus. */
export const pause = (longestMs) => new Promise((resolve) => {
  setTimeout(resolve, random() * longestMs);
});

/** Keeps this thread from doing anything at all, timers included. */
export function blockThisThread(milliseconds) {
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, milliseconds);
}

/** Tells the starter that this process still gets on. */
export const tellProgress = (text) => process.stdout.write(
  `progress ${text}\n`);

/** A failure of the module that is worth a name. */
export function demand(condition, what) {
  if (!condition) throw new Error(what);
}

/** Waits for what a capture should bring, and tells of it when it does not. */
export async function untilCaptured(condition, what) {
  try {
    await until(condition, what, 60_000);
  } catch (error) {
    const stats = addon.getStats();
    const known = ['capturing', 'sourceBackend', 'framesEncoded',
      'audioPacketsCaptured', 'videoBridgeQueuedPackets',
      'audioBridgeQueuedPackets', 'lastGstBusError', 'lastOpenH264Error'];
    const told = known.map((key) => `${key} ${stats[key]}`);
    stats.audioSourceStats.forEach(({ packetsCaptured }, index) =>
      told.push(`source ${index} ${packetsCaptured}`));
    throw new Error(`${error.message}: ${told.join(', ')}`);
  }
}

// ---- Requests -------------------------------------------------------------

const branches = (fps) => [
  { width: 160, height: 90, fps: fps - 1, bitrate: 400_000 },
  { width: 80, height: 44, fps: fps - 2, bitrate: 200_000 },
];

const base = {
  sourceWidth: sources.width,
  sourceHeight: sources.height,
  width: sources.width,
  height: sources.height,
};

const capture = (branchCount, fps) => ({
  ...base,
  fps,
  bitrate: 800_000,
  ...branchCount > 1 && { branches: branches(fps).slice(0, branchCount - 1) },
});

/** A request for the X11 screen with no sound. */
export const screenRequest = (branchCount, fps = 60) =>
  monitorRequest(capture(branchCount, fps));

/** The same with the sound of applications. */
export const withTargets = (request, targets = sources.audioTargets) =>
  withAudio(request, 'process', targets);

/** The same with the sound of the whole system. */
export const withSystemSound = (request) =>
  withAudio(request, 'system', [sources.sinkSerial]);

/**
 * A connection to PipeWire such as a portal hands over: nobody reads from it
 * here. Each capture needs a new one.
 */
export async function connectToPipeWire() {
  const socket = net.connect(sources.socket);
  socket.pause();
  socket.on('error', () => {});
  await once(socket, 'connect');
  return { fd: socket._handle.fd, close: () => socket.destroy() };
}

/** A request for the screen cast over a connection. */
export const castRequest = ({ fd }, branchCount, fps = 60) => portalRequest({
  fd,
  node: { id: sources.screenNode },
  ...capture(branchCount, fps),
});

// ---- Calls at random ------------------------------------------------------

/** What a call may be refused with, depending on what is captured. */
const refusals = /^Linux (setBitrate|updateAudioTargets) requires (an )?active/;

const calls = {
  getStats() {
    const stats = addon.getStats();
    demand(stats.backend === 'linux' && stats.framesEncoded >= 0,
      'getStats returned something else');
  },
  resetStats: () => addon.resetStats(),
  forceKeyframe: () => addon.forceKeyframe(),
  setBitrate: () => addon.setBitrate(random() * 1e7),
  updateAudioTargets: () => addon.updateAudioTargets({
    mode: 'process',
    pipeWireTargetObjects: choose(
      [sources.audioTargets, [sources.audioTargets[0]],
        [sources.audioTargets[1]]]),
  }),
};

export const callCounts = Object.fromEntries(
  Object.keys(calls).map((name) => [name, 0]));

/** Calls one function of the module; a refusal in known words is fine. */
export function callAtRandom(names = Object.keys(calls)) {
  const name = choose(names);
  callCounts[name] += 1;
  try {
    calls[name]();
  } catch (error) {
    if (!refusals.test(error.message)) throw error;
  }
}

// ---- Figures --------------------------------------------------------------

const countOf = (folder) => readdirSync(`/proc/self/${folder}`).length;

/**
 * Threads, descriptors and resident bytes of this process, cleaned up and
 * without the heap of JavaScript, which V8 makes as large as it likes.
 */
export function readFigures() {
  globalThis.gc();
  const pages = Number(readFileSync('/proc/self/statm', 'utf8').split(' ')[1]);
  return {
    threads: countOf('task'),
    descriptors: countOf('fd'),
    memory: pages * 4096 - process.memoryUsage().heapTotal,
  };
}

/** As readFigures, once no more threads are left than there were before. */
export async function readFiguresAgain(before) {
  // GLib's pool keeps a thread without work for 15 seconds, and the entry of
  // a thread goes a moment after it was joined.
  await until(() => countOf('task') <= before.threads &&
    countOf('fd') <= before.descriptors, 'threads to end', 40_000)
    .catch(() => {});
  return readFigures();
}

/** The rise of values per step, by least squares. */
export function slopeOf(values) {
  const mean = (list) => list.reduce((sum, value) => sum + value, 0) /
    list.length;
  const middle = (values.length - 1) / 2;
  const average = mean(values);
  const above = values.reduce((sum, value, index) =>
    sum + (index - middle) * (value - average), 0);
  const below = values.reduce((sum, _, index) => sum + (index - middle) ** 2,
    0);
  return below === 0 ? 0 : above / below;
}

/** The rise per sample in the second half, when every pool has been filled. */
export const trendOf = (samples) =>
  slopeOf(samples.slice(Math.floor(samples.length / 2)));

/** The last line of a program. */
export const tellResult = (result) => process.stdout.write(
  `result ${JSON.stringify(result)}\n`);
