import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import {
  arrivalsOf, splitAccessUnits,
} from '../../bench/lib/access_units.mjs';
import { checkBitsOf, readBarcode } from '../../bench/lib/barcode.mjs';
import { encoderArguments } from '../../bench/lib/bare_encoder.mjs';
import { describeStream, readNumbers } from '../../bench/lib/decoding.mjs';
import { program } from '../../bench/lib/programs.mjs';
import { colourOf, qualityOf } from '../../bench/lib/quality.mjs';
import { scenarios, screen, sizeOf } from '../../bench/lib/scenarios.mjs';

let folder;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'bench-barcode-'));
});
after(() => rmSync(folder, { recursive: true }));

const quietly = { stdio: ['ignore', 'pipe', 'ignore'], maxBuffer: 1 << 30 };

const cellsOf = (number) => {
  const bits = number.toString(2).padStart(20, '0') +
    checkBitsOf(number).toString(2).padStart(12, '0');
  return Array.from(bits, (bit) => (bit === '1' ? 200 : 50));
};

test('a number is read back from its cells', () => {
  for (const number of [0, 1, 2, 1023, 65_535, 524_288, 1_048_575]) {
    assert.equal(readBarcode(cellsOf(number)), number);
  }
});

test('cells that are no number are told from one', () => {
  assert.equal(readBarcode(Array(32).fill(0)), null);
  assert.equal(readBarcode(Array(32).fill(255)), null);
  for (let cell = 0; cell < 32; cell += 1) {
    const cells = cellsOf(4711);
    cells[cell] = 255 - cells[cell];
    assert.equal(readBarcode(cells), null, `cell ${cell}`);
  }
});

/** Two seconds of a branch from the module's own encoder. */
function encode(branch, scene) {
  const file = path.join(
    folder, `${sizeOf(branch)}-${scene.kind}.h264`);
  execFileSync(program('bench_encoder'),
    [...encoderArguments(branch, scene, 2), '--stream', file], quietly);
  return file;
}

for (const scenario of scenarios) {
  for (const branch of scenario.branches) {
    const what = `${sizeOf(branch)} of the ${scenario.scene.kind} scene`;
    test(`every number survives the encoder at ${what}`, async () => {
      const { scene } = scenario;
      const numbers = await readNumbers(encode(branch, scene));
      assert.deepEqual(numbers, Array.from({ length: 2 * branch.fps },
        (_, i) => Math.floor((i * scene.hz) / branch.fps)));
    });
  }
}

test('a stream is compared with the pictures that it shows', async () => {
  const [{ scene, branches }] = scenarios;
  const branch = branches[1];
  const file = encode(branch, scene);
  const pictures = (await readNumbers(file))
    .map((number, position) => ({ number, position }));
  assert.deepEqual(colourOf(await describeStream(file)),
    { matrix: 'bt709', range: 'full' });
  const good = await qualityOf(file, branch, scene.kind, pictures);
  assert.ok(good.psnr > 35 && good.ssim > 0.95, JSON.stringify(good));
  // Each picture against the one a second later.
  const wrong = await qualityOf(file, branch, scene.kind, pictures
    .map(({ number, position }) => ({ number: number + 60, position })));
  assert.ok(wrong.psnr < good.psnr - 10, JSON.stringify(wrong));
});

test('a stream without a description is read as players read it', () => {
  assert.deepEqual(colourOf({ height: 1080 }),
    { matrix: 'bt709', range: 'limited' });
  assert.deepEqual(colourOf({ height: 540, color_space: 'unknown' }),
    { matrix: 'bt601', range: 'limited' });
  assert.deepEqual(
    colourOf({ height: 540, color_space: 'bt709', color_range: 'pc' }),
    { matrix: 'bt709', range: 'full' });
});

test('pictures of several slices are split where they begin', () => {
  const raw = path.join(folder, 'raw.yuv');
  writeFileSync(raw, execFileSync(program('bench_reference'), [
    '--size', sizeOf(screen), '--to', '480x270', '--scene', 'moving',
    '--matrix', 'bt601', '--range', 'limited',
    ...Array.from({ length: 20 }, (_, i) => String(i)),
  ], quietly));
  const file = path.join(folder, 'slices.h264');
  execFileSync('ffmpeg', [
    '-v', 'error', '-f', 'rawvideo', '-pix_fmt', 'yuv420p', '-s', '480x270',
    '-i', raw, '-c:v', 'libx264', '-preset', 'ultrafast',
    '-tune', 'zerolatency', '-x264-params', 'slices=4', '-g', '10', file,
  ], quietly);
  const bytes = readFileSync(file);
  const units = splitAccessUnits(bytes);
  assert.equal(units.length, 20);
  assert.equal(units[0].begin, 0);
  assert.equal(units.at(-1).end, bytes.length);
  units.slice(1).forEach(({ begin }, i) => assert.equal(begin, units[i].end));
});

test('a picture has arrived with its last byte', () => {
  const units = [{ begin: 0, end: 10 }, { begin: 10, end: 30 },
    { begin: 30, end: 35 }, { begin: 35, end: 40 }];
  const chunks = [[100, 10], [200, 5], [300, 16], [400, 9]];
  assert.deepEqual(arrivalsOf(units, chunks), [100, 300, 400, 400]);
});
