import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { existsSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { runCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { colourAt, patchColours } from '../support/picture.mjs';
import { until } from '../support/until.mjs';

const run = promisify(execFile);
// The patches of the scene are 160x90, four above four, from line 90 on.
const context = useDisplay();
const size = { width: 128, height: 64 };

let folder;
before(async () => {
  folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
  // The hooks of a file begin together.
  await until(() => context.scene, 'the scene');
  for (const [name, left] of [['left', 0], ['right', 320]]) {
    await run('xrandr', ['--display', context.display, '--setmonitor', name,
      `320/100x360/100+${left}+0`, 'none']);
  }
});
after(() => rmSync(folder, { recursive: true, force: true }));

const record = (name, ...args) => runCommand(['record',
  path.join(folder, name), '--duration', '1', '--bitrate', '2M', ...args]);

/** The last picture of a recording. */
async function lastPicture(name) {
  const { stdout } = await run('ffmpeg', ['-v', 'error', '-i',
    path.join(folder, name), '-sws_flags', 'accurate_rnd+full_chroma_int',
    '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'],
  { encoding: 'buffer', maxBuffer: 1 << 28 });
  const bytes = size.width * size.height * 3;
  assert.equal(stdout.length % bytes, 0);
  return { ...size, data: stdout.subarray(stdout.length - bytes) };
}

function assertColour(seen, patch) {
  const wanted = patchColours[patch];
  assert.ok(seen.every((value, at) => Math.abs(value - wanted[at]) <= 4),
    `${seen} where ${wanted} is shown`);
}

describe('a recorded region', () => {
  const places = [
    ['of the screen', ['--region', '170,100,128x64'], 1, 1],
    ['of a monitor', ['--monitor', 'right', '--region', '170,190,128x64'], 7,
      7],
    ['that lies on two monitors', ['--region', '256,100,128x64'], 1, 2],
  ];
  for (const [what, args, left, right] of places) {
    test(`${what} shows that part alone`, async () => {
      const file = `${what.replaceAll(' ', '-')}.mkv`;
      const { status, stdout, stderr } = await record(file, ...args);
      assert.equal(stderr, '');
      assert.equal(status, 0);
      assert.match(stdout, /^Recording a rectangle, 128x64 at 30 fps/);
      const picture = await lastPicture(file);
      assertColour(colourAt(picture, 1 / 4, 1 / 2, 10), left);
      assertColour(colourAt(picture, 3 / 4, 1 / 2, 10), right);
    });
  }
});

describe('a region is refused in one line', () => {
  const refused = [
    ['that begins before the screen', ['--region', '-1,0,64x64'],
      'the region 64x64 at -1,0 leaves the screen of 640x360'],
    ['that ends behind the screen', ['--region', '600,300,41x61'],
      'the region 41x61 at 600,300 leaves the screen of 640x360'],
    ['that leaves its monitor', ['--monitor=left', '--region', '300,0,64x64'],
      'the region 64x64 at 300,0 leaves the monitor "left" of 320x360'],
    ['of a monitor that is not there',
      ['--monitor=none', '--region', '0,0,64x64'],
      /^there is no monitor "none"; there are .*"left", "right"/],
    ['that is too small to encode', ['--region', '0,0,14x64'],
      /^video branch 0 of 14x64 is smaller than 16x16/],
  ];
  for (const [what, args, message] of refused) {
    test(what, async () => {
      const { status, stdout, stderr } = await record('refused.mp4', ...args);
      assert.equal(status, 1);
      assert.equal(stdout, '');
      const [, said] = /^linux-capture: (.*)\n$/.exec(stderr);
      if (typeof message === 'string') assert.equal(said, message);
      else assert.match(said, message);
      assert.equal(existsSync(path.join(folder, 'refused.mp4')), false);
    });
  }

  test('where there is no screen at all', async () => {
    const { status, stderr } = await runCommand(['record',
      path.join(folder, 'refused.mp4'), '--region', '0,0,64x64'],
    { DISPLAY: ':4711' });
    assert.equal(status, 1);
    assert.match(stderr, /^linux-capture: .*":4711" cannot be reached \(ERR_CAPTURE_NO_DISPLAY\)\n$/);
  });
});
