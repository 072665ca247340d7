import assert from 'node:assert/strict';
import {
  mkdirSync, readdirSync, statSync, symlinkSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { packageName, root, runProgram, useInstalledPackage } from
  '../support/packed.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const megabyte = 1e6;
const context = useInstalledPackage();
const modules = () => path.join(context.consumer.home, 'node_modules');

test('an installation takes less than six megabytes', () => {
  const bytes = readdirSync(modules(), { recursive: true })
    .map((name) => statSync(path.join(modules(), name)))
    .reduce((sum, entry) => sum + (entry.isFile() ? entry.size : 0), 0);
  assert.ok(bytes < 6 * megabyte, `${bytes} bytes`);
});

test('an installation brings no types but its own', () => {
  const found = readdirSync(modules(), { recursive: true })
    .filter((name) => name.endsWith('.d.ts') && !name.startsWith(packageName));
  assert.deepEqual(found, []);
});

test('a project that knows no browser still compiles as a whole', () => {
  const { home } = context.consumer;
  const types = path.join(modules(), '@types');
  mkdirSync(types);
  symlinkSync(path.join(root, 'node_modules/@types/node'),
    path.join(types, 'node'));
  symlinkSync(path.join(root, 'node_modules/undici-types'),
    path.join(modules(), 'undici-types'));
  writeFileSync(path.join(home, 'program.mts'), `
import { captureSetup } from '${packageName}';
import { startCapture } from '${packageName}/session';
const session = await startCapture({ source: { type: 'portal' } });
for await (const packet of session.video()) console.log(packet.data.length);
console.log(typeof captureSetup);
`);
  // Every package of types that is installed takes part.
  const { status, output } = runProgram(
    path.join(root, 'node_modules/.bin/tsc'),
    ['--noEmit', '--strict', '--target', 'es2022', '--lib', 'es2022',
      '--module', 'node16', '--skipLibCheck', 'false', 'program.mts'],
    { cwd: home });
  assert.equal(status, 0, output);
});

test('an installation records pictures and sound into a file', async () => {
  const { home } = context.consumer;
  const xvfb = await startXvfb();
  try {
    writeFileSync(path.join(home, 'record.mjs'), `
import { startCapture } from '${packageName}/session';
const inside = './node_modules/${packageName}/lib/command/recording';
const { MediaFile } = await import(inside + '/media_file.mjs');
const { OutputFile } = await import(inside + '/output_file.mjs');
const capture = await startCapture({ source: { type: 'monitor' } });
const file =
  new MediaFile(new OutputFile('recorded.mp4'), { hasAudio: true });
await file.start();
let count = 0;
for await (const packet of capture.video()) {
  await file.addVideo(packet);
  await file.addAudio({
    timestampUs: packet.timestampUs, durationUs: 20_000,
    samples: new Int16Array(2 * 960),
  });
  count += 1;
  if (count === 30) break;
}
await capture.stop();
await file.close();
`);
    const { status, stderr } = context.consumer.run('node', ['record.mjs'],
      { DISPLAY: xvfb.display });
    assert.equal(status, 0, stderr);
  } finally {
    await xvfb.stop();
  }
  const { stdout } = runProgram('ffprobe', ['-v', 'error', '-show_entries',
    'stream=codec_name', '-of', 'csv=p=0', path.join(home, 'recorded.mp4')]);
  assert.deepEqual(stdout.trim().split('\n'), ['h264', 'aac']);
});
