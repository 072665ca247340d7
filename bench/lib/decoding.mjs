import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

import { barcodeCells, readBarcode } from './barcode.mjs';

const run = promisify(execFile);
const maxBuffer = 1 << 30;

const decode = (file) => ['-v', 'error', '-f', 'h264', '-i', file];
// One picture out for one picture in: no repeats, nothing left out.
const rawOutput = (format) =>
  ['-fps_mode', 'passthrough', '-f', 'rawvideo', '-pix_fmt', format, '-'];

/** The number in each picture of an H.264 file, null where none can be read. */
export async function readNumbers(file) {
  // The middle of the barcode's fifteenth of the height, each cell averaged.
  const filter = 'crop=iw:ih/30:0:ih/60,' +
    `scale=${barcodeCells}:1:flags=area`;
  const { stdout } = await run(
    'ffmpeg', [...decode(file), '-vf', filter, ...rawOutput('gray')],
    { encoding: 'buffer', maxBuffer });
  return Array.from({ length: stdout.length / barcodeCells }, (_, i) =>
    readBarcode(stdout.subarray(i * barcodeCells, (i + 1) * barcodeCells)));
}

/** What the stream says of its samples, as far as it says anything. */
export async function describeStream(file) {
  const { stdout } = await run('ffprobe', [
    '-v', 'error', '-f', 'h264', '-of', 'json', '-show_streams', file,
  ]);
  return JSON.parse(stdout).streams[0];
}

/** Decodes the pictures at these positions into one file of raw samples. */
export async function decodePictures(file, positions, format, output) {
  const chosen = positions.map((n) => `eq(n\\,${n})`).join('+');
  await run('ffmpeg', [
    ...decode(file), '-vf', `select='${chosen}'`,
    ...rawOutput(format).slice(0, -1), '-y', output,
  ]);
}
