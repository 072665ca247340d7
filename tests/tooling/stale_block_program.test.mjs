import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

const page = new URL('../../docs/openh264-stale-blocks.md', import.meta.url);

let folder;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'stale-block-program-'));
});
after(() => rmSync(folder, { recursive: true }));

test('the program in the page on stale blocks judges every picture', () => {
  const source = path.join(folder, 'stale_blocks.cc');
  const [, code] = /^```cpp\n(#include[\s\S]*?)^```$/m
    .exec(readFileSync(page, 'utf8'));
  writeFileSync(source, code);
  const program = path.join(folder, 'stale_blocks');
  execFileSync('c++', ['-std=c++17', source, '-o', program, '-lopenh264']);
  const { status, stdout } = spawnSync(program, { encoding: 'utf8' });
  const lines = [...stdout.matchAll(
    /^picture (\d), temporal index (\d), \d+ bytes: (\d+) samples wrong$/gm)]
    .map((match) => match.slice(1).map(Number));
  assert.deepEqual(lines.map(([number, index]) => [number, index]),
    [[1, 0], [2, 2], [3, 1], [4, 2]]);
  // The fourth alone can be wrong, by the block of 16x16.
  assert.deepEqual(lines.map(([, , wrong]) => wrong),
    [0, 0, 0, status === 0 ? 0 : 256]);
  assert.ok(status === 0 || status === 1, `status ${status}`);
});
