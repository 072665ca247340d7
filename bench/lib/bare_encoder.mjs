import { execFileSync } from 'node:child_process';
import path from 'node:path';

import { readNumbers } from './decoding.mjs';
import { program } from './programs.mjs';
import { qualityOf } from './quality.mjs';
import { screen, sizeOf } from './scenarios.mjs';

/** Arguments of bench_encoder for one branch and so many seconds of it. */
export const encoderArguments = (branch, scene, seconds) => [
  '--size', sizeOf(screen), '--to', sizeOf(branch),
  '--fps', String(branch.fps), '--bitrate', String(branch.bitrate),
  '--max-bitrate', String(branch.maxBitrate), '--layers', '1',
  '--pictures', String(Math.ceil(branch.fps * seconds)),
  '--scene', scene.kind, '--scene-hz', String(scene.hz),
];

/**
 * What the encoder alone costs for a second of one branch, and what it makes of
 * pictures that nothing has distorted before it.
 */
export async function runBareEncoder(branch, scene, seconds, folder) {
  const file = path.join(folder, 'bare.h264');
  const answer = JSON.parse(execFileSync(
    program('bench_encoder'),
    [...encoderArguments(branch, scene, seconds), '--stream', file],
    // The library writes its remarks to standard error.
    { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] }));
  const length = Math.ceil(branch.fps * seconds) / branch.fps;
  const pictures = (await readNumbers(file))
    .map((number, position) => ({ number, position }))
    .filter(({ number }) => number !== null);
  return {
    perSecond: answer.seconds / length,
    bitrate: (answer.bytes * 8) / length,
    quality: await qualityOf(file, branch, scene.kind, pictures),
  };
}
