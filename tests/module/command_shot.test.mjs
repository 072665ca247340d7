import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { existsSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { startCapture, takeScreenshot } from 'linux-capture-addon/session';
import { runCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { patchColours } from '../support/picture.mjs';
import { coloursIn, readPng } from '../support/png.mjs';
import { useFolder } from '../support/temporary_folder.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const run = promisify(execFile);
const program =
  fileURLToPath(new URL('../../bin/linux-capture.mjs', import.meta.url));
const context = useDisplay();

const folder = useFolder();

let count = 0;
const newFile = () => {
  count += 1;
  return path.join(folder, `${count}.png`);
};

async function shoot(...args) {
  const file = newFile();
  const result = await runCommand(['shot', file, ...args]);
  assert.equal(result.stderr, '');
  assert.equal(result.status, 0);
  const picture = await readPng(file);
  assert.equal(result.stdout, `${file}: ${picture.width}x${picture.height}, ${
    Math.ceil(readFileSync(file).length / 1000)} kB\n`);
  return picture;
}

/** Each patch of the scene is 160x90, four above four, from line 90 on. */
const placeOf = (patch) => ({
  x: patch % 4 * 160, y: 90 + Math.floor(patch / 4) * 90,
  width: 160, height: 90,
});

function assertPatches(picture) {
  assert.deepEqual([picture.width, picture.height, picture.format],
    [640, 360, 'rgb24']);
  patchColours.forEach((colour, patch) => {
    assert.deepEqual(coloursIn(picture, placeOf(patch)),
      { [colour.join()]: 160 * 90 });
  });
}

describe('a screenshot has each pixel as it is', () => {
  test('of a monitor', async () => assertPatches(await shoot('--monitor')));

  test('of a window', async () => {
    const { window } = context.scene;
    assertPatches(await shoot('--window', String(window)));
  });

  test('of a region', async () => {
    const picture = await shoot('--region', '159,100,2x3');
    assert.deepEqual([picture.width, picture.height], [2, 3]);
    [0, 1].forEach((patch) => assert.deepEqual(
      coloursIn(picture, { x: patch, y: 0, width: 1, height: 3 }),
      { [patchColours[patch].join()]: 3 }));
  });

  test('with the pointer, and without it', async () => {
    const move = (x, y) => run('xdotool', ['mousemove', x, y]);
    await move('80', '135');
    try {
      assertPatches(await shoot('--pointer', 'hidden'));
      const pointed = coloursIn(await shoot(), placeOf(0));
      assert.ok(Object.keys(pointed).length > 1);
    } finally {
      await move('639', '359');
    }
  });

  test('on standard output', async () => {
    const { stdout, stderr } = await run(process.execPath,
      [program, 'shot', '-', '--monitor'],
      { encoding: 'buffer', maxBuffer: 1 << 26 });
    assert.equal(stderr.toString(), '');
    const file = newFile();
    writeFileSync(file, stdout);
    assertPatches(await readPng(file));
  });

  test('while a capture runs in the same process', async () => {
    const source = { type: 'monitor' };
    const capture = await startCapture({ source });
    try {
      const { data, width, height, source: taken, restoreToken } =
        await takeScreenshot({ source });
      const file = newFile();
      writeFileSync(file, data);
      assertPatches(await readPng(file));
      assert.deepEqual([width, height, taken.type, restoreToken],
        [640, 360, 'monitor', null]);
      assert.equal(capture.isActive, true);
    } finally {
      await capture.stop();
    }
  });
});

describe('a screenshot that cannot be taken says why in one line', () => {
  const refused = [
    ['of a region off the screen', ['--region', '600,0,41x10'],
      /^the region 41x10 at 600,0 leaves the screen of 640x360$/],
    ['of a window that is not there', ['--window', '0x7fffff'],
      /there is no window with id 8388607/],
    ['of a monitor that is not there', ['--monitor', 'none'],
      /there is no monitor "none"/],
  ];
  for (const [what, args, message] of refused) {
    test(what, async () => {
      const file = newFile();
      const { status, stdout, stderr } =
        await runCommand(['shot', file, ...args]);
      assert.equal(status, 1);
      assert.equal(stdout, '');
      assert.match(/^linux-capture: (.*)\n$/.exec(stderr)[1], message);
      assert.equal(existsSync(file), false);
    });
  }

  test('of a window that is partly off the screen', async () => {
    const desktop = desktopOf(context.display);
    const { window } = context.scene;
    await desktop.move(window, 400, 0);
    try {
      await assert.rejects(
        takeScreenshot({ source: { type: 'window', id: window } }), {
          code: 'ERR_CAPTURE_SOURCE',
          message: 'the window is hidden or partly off the screen',
        });
    } finally {
      await desktop.move(window, 0, 0);
    }
  });

  test('of a rectangle that leaves the screen', async () => {
    const geometry = { x: 600, y: 0, width: 41, height: 10 };
    await assert.rejects(
      takeScreenshot({ source: { type: 'monitor', geometry } }), {
        code: 'ERR_CAPTURE_SOURCE',
        message: 'the rectangle leaves the X11 screen of 640x360',
      });
  });

  test('of a screen with colours that are not read right', async () => {
    const xvfb = await startXvfb({ depth: 30 });
    try {
      const { status, stderr } =
        await runCommand(['shot', newFile()], { DISPLAY: xvfb.display });
      assert.equal(status, 1);
      assert.match(stderr, /the X11 screen of depth 30 cannot be captured: /);
    } finally {
      await xvfb.stop();
    }
  });

  test('without the element that writes it', async () => {
    const { status, stderr } = await runCommand(['shot', newFile()],
      { GST_PLUGIN_SYSTEM_PATH_1_0: folder, GST_PLUGIN_PATH_1_0: folder,
        GST_REGISTRY_1_0: path.join(folder, 'registry') });
    assert.equal(status, 1);
    assert.match(stderr, /"ximagesrc".* gstreamer1\.0-plugins-good.*\(ERR_CAPTURE_MISSING_ELEMENT\)\n$/);
  });

  test('into a file that exists, until it may be replaced', async () => {
    const file = newFile();
    writeFileSync(file, 'precious');
    const { status, stderr } = await runCommand(['shot', file]);
    assert.equal(status, 1);
    assert.match(stderr, /\.png exists already; --overwrite replaces it\n$/);
    assert.equal(readFileSync(file, 'utf8'), 'precious');
    const again = await runCommand(['shot', file, '--overwrite']);
    assert.equal(again.status, 0);
    assertPatches(await readPng(file));
  });

  test('into a standard output that is full', async () => {
    await assert.rejects(run('sh', ['-c',
      `"${process.execPath}" "${program}" shot - > /dev/full`]), {
      code: 1,
      stderr: /^linux-capture: standard output cannot be written: .*\(ENOSPC\)\n$/,
    });
  });
});

describe('a display that stands still', () => {
  let xvfb;
  before(async () => {
    xvfb = await startXvfb();
  });
  after(() => xvfb?.stop());

  const childrenOf = () => readdirSync('/proc').filter((pid) => {
    try {
      const [, parent] = /\(linux-capture-s\) \w (\d+)/.exec(
        readFileSync(`/proc/${pid}/stat`, 'utf8'));
      return Number(parent) === process.pid;
    } catch {
      return false;
    }
  });

  test('holds no screenshot that is given up', async () => {
    const { DISPLAY } = process.env;
    process.env.DISPLAY = xvfb.display;
    xvfb.freeze();
    const controller = new AbortController();
    try {
      const taken = takeScreenshot({
        source: { type: 'monitor',
          geometry: { x: 0, y: 0, width: 64, height: 64 } },
        signal: controller.signal,
      });
      setTimeout(() => controller.abort(), 500);
      await assert.rejects(taken, { code: 'ABORT_ERR' });
      assert.deepEqual(childrenOf(), []);
    } finally {
      process.env.DISPLAY = DISPLAY;
      xvfb.thaw();
    }
  });
});
