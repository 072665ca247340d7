import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);
const rate = 48_000;
const loud = 3_000;
const bright = 160;

// ffmpeg's words for a corner of the picture as one grey pixel.
const flashPatch =
  'crop=iw/16:ih/16:0:ih*15/16,scale=1:1:flags=area,format=gray';

async function decode(file, args) {
  const { stdout } = await run('ffmpeg', ['-v', 'error', '-i', file, ...args,
    '-'], { encoding: 'buffer', maxBuffer: 1 << 28 });
  return stdout;
}

async function packetsOf(file, key) {
  const { stdout } = await run('ffprobe', ['-v', 'error', '-select_streams',
    'v', '-show_entries', `packet=${key}`, '-of', 'csv=p=0', file]);
  return stdout.split('\n').filter(Boolean);
}

/** Seconds at which the pictures of a file are shown. */
export const pictureTimes = async (file) =>
  (await packetsOf(file, 'pts_time')).map(Number.parseFloat);

/** Numbers of the keyframes among the pictures of a file. */
export const keyframesIn = async (file) =>
  (await packetsOf(file, 'flags')).flatMap((flags, i) =>
    (flags.startsWith('K') ? [i] : []));

/** Seconds at which the flashes of a producer begin in a file. */
export async function flashesIn(file) {
  const pixels = await decode(file,
    ['-vf', flashPatch, '-fps_mode', 'passthrough', '-f', 'rawvideo']);
  const times = await pictureTimes(file);
  return times.filter((_, i) =>
    i > 0 && pixels[i] > bright && pixels[i - 1] <= bright);
}

/** Seconds at which sound begins after silence in a file. */
export async function clicksIn(file) {
  const bytes = await decode(file,
    ['-ac', '1', '-ar', String(rate), '-f', 's16le']);
  const clicks = [];
  let last = Number.NEGATIVE_INFINITY;
  for (let i = 0; i * 2 + 1 < bytes.length; i += 1) {
    if (Math.abs(bytes.readInt16LE(i * 2)) < loud) continue;
    if (i / rate - last > 0.1) clicks.push(i / rate);
    last = i / rate;
  }
  return clicks;
}

/** For each flash, by how many seconds the nearest click is later. */
export const clickDelays = (flashes, clicks) => flashes.map((flash) =>
  clicks.map((click) => click - flash)
    .reduce((best, delay) =>
      (Math.abs(delay) < Math.abs(best) ? delay : best), Infinity));
