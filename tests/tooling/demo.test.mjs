import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { readOptions } from '../../demo/options.mjs';
import { branchTable } from '../../demo/report.mjs';

const root = fileURLToPath(new URL('../..', import.meta.url));

test('without a display it captures a scene into three files', () => {
  const output = mkdtempSync(path.join(tmpdir(), 'demo-'));
  const env = { ...process.env };
  delete env.DISPLAY;
  try {
    const { status, stdout, stderr } = spawnSync(process.execPath, [
      'tests/support/on_screen.mjs', 'demo/demo.mjs', '--seconds', '2',
      '--output', output,
    ], { cwd: root, env, encoding: 'utf8', timeout: 60_000 });
    assert.equal(status, 0, stdout + stderr);
    for (const size of ['1280x720', '640x360', '320x180']) {
      const file = new RegExp(`^  (.*-${size}\\.mp4)$`, 'm').exec(stdout);
      assert.ok(file !== null, stdout);
      const { streams: [stream] } = JSON.parse(execFileSync('ffprobe', [
        '-v', 'error', '-of', 'json', '-count_frames', '-show_streams',
        file[1],
      ]));
      assert.equal(`${stream.width}x${stream.height}`, size);
      assert.ok(Number(stream.nb_read_frames) > 1, size);
    }
  } finally {
    rmSync(output, { recursive: true });
  }
});

test('the command line is checked', () => {
  assert.deepEqual(readOptions([]),
    { seconds: 5, output: 'demo-output', help: false });
  assert.equal(readOptions(['--seconds', '2.5']).seconds, 2.5);
  for (const seconds of ['0', 'soon', '601', '']) {
    assert.throws(() => readOptions(['--seconds', seconds]), /from 1 to 600/);
  }
  assert.throws(() => readOptions(['--fast']), /usage: npm run demo/);
});

test('the table has a line for each branch and its numbers', () => {
  const lines = branchTable([{
    branch: 1, width: 640, height: 360, fps: 14.96, targetFps: 15,
    frames: 75, keyframes: 2, bitsPerSecond: 1_000_000,
    framesPerLayer: [19, 18, 38], droppedByModule: 3,
  }]).split('\n');
  assert.equal(lines.length, 2);
  assert.deepEqual(lines[1].trim().split(/\s{2,}/),
    ['1', '640x360', '15.0 of 15', '75', '2', '1000', '19/18/38', '3']);
});
