import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, rmSync, symlinkSync, writeFileSync } from
  'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { packProject, root, runProgram } from '../support/packed.mjs';

const program = (name) => path.join(root, 'node_modules', '.bin', name);

let folder;
let packed;

before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-types-'));
  packed = packProject(folder);
  const modules = path.join(folder, 'node_modules');
  const installed = path.join(modules, 'linux-capture-addon');
  mkdirSync(installed, { recursive: true });
  runProgram('tar',
    ['-xzf', packed.file, '-C', installed, '--strip-components=1']);
  for (const name of ['@types', 'undici-types']) {
    symlinkSync(path.join(root, 'node_modules', name),
      path.join(modules, name));
  }
  writeFileSync(path.join(folder, 'consumer.ts'), `
import * as capture from 'linux-capture-addon';
import { CaptureError, startCapture } from 'linux-capture-addon/session';
import type { CaptureOptions } from 'linux-capture-addon/session';

const options: CaptureOptions = { source: { type: 'portal' } };
export async function consume(): Promise<number> {
  capture.onFragmentReady((packet) => packet.payload.length);
  const session = await startCapture(options);
  for await (const packet of session.video()) return packet.data.length;
  throw new CaptureError('ERR_CAPTURE_STOPPED', 'no picture');
}
// @ts-expect-error: there is no such kind of source.
export const wrong: CaptureOptions = { source: { type: 'camera' } };
`);
});
after(() => rmSync(folder, { recursive: true }));

test('publint finds nothing to say', () => {
  const { status, output } = runProgram(program('publint'),
    ['run', packed.file, '--strict'], { cwd: folder });
  assert.equal(status, 0, output);
  assert.match(output, /All good/);
});

test('no way of resolving the types is wrong', () => {
  const { status, output } = runProgram(program('attw'),
    [packed.file, '--no-emoji', '--no-color', '--no-definitely-typed'],
    { cwd: folder });
  assert.equal(status, 0, output);
  assert.match(output, /No problems found/);
});

for (const [resolution, module] of [
  ['node16', 'node16'], ['bundler', 'es2022'], ['node10', 'commonjs'],
]) {
  test(`a program compiles with the resolution "${resolution}"`, () => {
    const { status, output } = runProgram(program('tsc'), ['--noEmit',
      '--strict', '--target', 'es2022', '--module', module,
      '--moduleResolution', resolution, '--types', 'node',
      '--skipLibCheck', 'false', 'consumer.ts'], { cwd: folder });
    assert.equal(status, 0, output);
  });
}
