// How close the delivered pictures are to what was on the screen.
import { execFile } from 'node:child_process';
import { open } from 'node:fs/promises';
import path from 'node:path';
import { promisify } from 'node:util';

import { decodePictures, describeStream } from './decoding.mjs';
import { program } from './programs.mjs';
import { screen, sizeOf } from './scenarios.mjs';
import { makeFolder, removeFolder } from './temporary_folder.mjs';

const run = promisify(execFile);
const picturesCompared = 8;

// Where a stream does not say what its samples mean, players go by the height.
const playersChooseHdFrom = 720;

/** The meaning of a stream's samples: as it says, else as players assume. */
export function colourOf({ color_space: space, color_range: range, height }) {
  const assumed = height >= playersChooseHdFrom ? 'bt709' : 'bt601';
  const stated = { bt709: 'bt709', smpte170m: 'bt601', bt470bg: 'bt601' };
  return {
    matrix: stated[space] ?? assumed,
    range: range === 'pc' ? 'full' : 'limited',
  };
}

/** So many of the list, from its first to its last at even distances. */
export function evenly(list, count) {
  if (list.length <= count) return list;
  return Array.from({ length: count }, (_, i) =>
    list[Math.round((i * (list.length - 1)) / (count - 1))]);
}

async function writeReferences(numbers, branch, sceneKind, colour, output) {
  const file = await open(output, 'w');
  try {
    const { stdout } = await run(program('bench_reference'), [
      '--size', sizeOf(screen), '--to', sizeOf(branch), '--scene', sceneKind,
      '--matrix', colour.matrix, '--range', colour.range,
      ...numbers.map(String),
    ], { encoding: 'buffer', maxBuffer: 1 << 30 });
    await file.writeFile(stdout);
  } finally {
    await file.close();
  }
}

/** Reads the closing lines of ffmpeg's filters. */
export function parseComparison(text) {
  const psnr = /PSNR .*average:(\S+)/.exec(text);
  const ssim = /SSIM .*All:(\S+)/.exec(text);
  if (psnr === null || ssim === null) {
    throw new Error(`no comparison in: ${text.slice(-500)}`);
  }
  return {
    psnr: psnr[1] === 'inf' ? Infinity : Number(psnr[1]),
    ssim: Number(ssim[1]),
  };
}

/**
 * PSNR and SSIM over all planes, in the stream's own Y'CbCr: the reference is
 * converted into what the stream says it holds, the stream is left alone. Both
 * are declared to the filters as the same format, so that they convert nothing.
 */
export async function qualityOf(file, branch, sceneKind, pictures) {
  const chosen = evenly(pictures, picturesCompared);
  if (chosen.length === 0) return null;
  const folder = makeFolder('quality');
  try {
    const colour = colourOf(await describeStream(file));
    const decoded = path.join(folder, 'decoded.yuv');
    const reference = path.join(folder, 'reference.yuv');
    await decodePictures(file, chosen.map(({ position }) => position),
      colour.range === 'full' ? 'yuvj420p' : 'yuv420p', decoded);
    await writeReferences(chosen.map(({ number }) => number), branch,
      sceneKind, colour, reference);
    const raw = (input) => [
      '-f', 'rawvideo', '-pix_fmt', 'yuv420p', '-s', sizeOf(branch),
      '-i', input,
    ];
    const { stderr } = await run('ffmpeg', [
      '-hide_banner', ...raw(decoded), ...raw(reference), '-filter_complex',
      '[0:v]split[a][b];[1:v]split[c][d];[a][c]psnr[e];[b][d]ssim[f]',
      '-map', '[e]', '-map', '[f]', '-f', 'null', '-',
    ]);
    return { ...parseComparison(stderr), ...colour };
  } finally {
    removeFolder(folder);
  }
}
