// Captures a screen in three sizes at once and writes one file for each.
import { mkdirSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';

import { MediaFile } from '../lib/command/recording/media_file.mjs';
import { OutputFile } from '../lib/command/recording/output_file.mjs';
import session from '../lib/session/index.js';
import { readOptions, usage } from './options.mjs';
import { branchTable, progressLine } from './report.mjs';

const progressPeriodMs = 250;

const video = {
  width: 1280,
  height: 720,
  fps: 30,
  bitrate: 4_000_000,
  layers: 3,
  branches: [
    { width: 640, height: 360, fps: 15, bitrate: 1_000_000 },
    { width: 320, height: 180, fps: 7, bitrate: 300_000 },
  ],
};

function showProgress(line, isLast = false) {
  if (process.stdout.isTTY) {
    process.stdout.write(`\r${line}\x1b[K${isLast ? '\n' : ''}`);
  } else {
    console.log(line);
  }
}

/** Writes one branch into a file of its own, to the end of the capture. */
async function writeBranch(capture, { branch, width, height }, folder) {
  const name = path.join(folder, `branch-${branch}-${width}x${height}.mp4`);
  const file = new MediaFile(new OutputFile(name, { mayReplace: true }));
  await file.start();
  try {
    for await (const packet of capture.video({ branch })) {
      await file.addVideo(packet);
    }
  } finally {
    await file.close();
  }
  return name;
}

/** Shows how far it is until the time is up or the capture has ended. */
async function watch(capture, seconds) {
  const waiting = new AbortController();
  const stopWaiting = () => waiting.abort();
  process.once('SIGINT', stopWaiting);
  capture.ended.then(stopWaiting);
  const frames = () => capture.stats().video.branches.map(
    (branch) => branch.frames);
  const start = performance.now();
  const elapsed = () => (performance.now() - start) / 1000;
  // A terminal shows one moving line; a log gets a line a second.
  const period = process.stdout.isTTY ? progressPeriodMs : 1000;
  while (elapsed() < seconds && !waiting.signal.aborted) {
    const rest = (seconds - elapsed()) * 1000;
    await sleep(Math.min(period, Math.max(rest, 1)), undefined,
      { signal: waiting.signal }).catch(() => {});
    if (seconds - elapsed() > 0.1) {
      showProgress(progressLine(elapsed(), seconds, frames()));
    }
  }
  showProgress(progressLine(elapsed(), seconds, frames()), true);
  process.removeListener('SIGINT', stopWaiting);
}

async function main() {
  const options = readOptions(process.argv.slice(2));
  if (options.help) {
    console.log(usage);
    return;
  }
  const capture =
    await session.startCapture({ source: { type: 'monitor' }, video });
  const { width, height } = capture.source.geometry;
  console.log(`capturing the screen ${process.env.DISPLAY}, ${width}x${height}`);
  if (process.env.XDG_SESSION_TYPE === 'wayland') {
    console.log(
      'this is a Wayland session: only windows of X11 programs are seen');
  }
  mkdirSync(options.output, { recursive: true });
  const files = Promise.all(capture.branches.map(
    (branch) => writeBranch(capture, branch, options.output)));
  // A file that cannot be written is no reason to capture on.
  files.catch(() => capture.stop());
  await watch(capture, options.seconds);
  await capture.stop();
  const written = await files;
  const { error } = await capture.ended;
  if (error !== null) throw error;
  const { encoder, video: { branches } } = capture.stats();
  if (branches.some(({ frames }) => frames === 0)) {
    throw new Error('a branch delivered no picture');
  }
  console.log(`\nencoder ${encoder.name}`);
  console.log(branchTable(branches));
  console.log('\nwritten, to be opened with any video player:');
  for (const file of written) console.log(`  ${file}`);
}

try {
  await main();
} catch (error) {
  console.error(`demo: ${error.message}`);
  process.exitCode = 1;
}
