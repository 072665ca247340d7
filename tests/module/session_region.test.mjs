import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { promisify } from 'node:util';
import { selectRegion, takeScreenshot } from 'linux-capture-addon/session';
import { startCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { patchColours } from '../support/picture.mjs';
import { coloursIn, readPng } from '../support/png.mjs';
import { useFolder } from '../support/temporary_folder.mjs';
import { until } from '../support/until.mjs';

const run = promisify(execFile);
// The patches of the scene are 160x90, four above four, from line 90 on.
useDisplay();

const folder = useFolder();

/** Moves the mouse and presses keys, as xdotool is told. */
const user = (...words) => run('xdotool', words.flat().map(String));
const moveTo = (x, y) => ['mousemove', x, y, 'sleep', 0.1];

const frameCount = async () => {
  const { stdout } = await run('xwininfo', ['-root', '-tree']);
  return stdout.match(/"linux-capture-select"/g)?.length ?? 0;
};
/** The frame is made when the mouse is the program's. */
const isReady = () => until(async () => await frameCount() === 4,
  'the selection to begin');
const isOver = () => until(async () => await frameCount() === 0,
  'the selection to end');

async function pictureOfScreen() {
  const { data } = await takeScreenshot({ source: { type: 'monitor' },
    pointer: 'hidden' });
  const file = path.join(folder, 'screen.png');
  writeFileSync(file, data);
  return readPng(file);
}

const colourAt = (picture, x, y) =>
  Object.keys(coloursIn(picture, { x, y, width: 1, height: 1 }))[0];

const frameColour = '255,127,0';

describe('a region that the user draws', () => {
  // The same one from each end of both diagonals.
  const ways = [[[170, 100], [289, 169]], [[289, 100], [170, 169]],
    [[289, 169], [170, 100]]];
  for (const [from, to] of ways) {
    test(`from ${from} to ${to} has both corners in it`, async () => {
      const selected = selectRegion();
      await isReady();
      await user(moveTo(...from), 'mousedown', 1, moveTo(200, 140),
        moveTo(...to), 'mouseup', 1);
      assert.deepEqual(await selected,
        { x: 170, y: 100, width: 120, height: 70 });
      assert.equal(await frameCount(), 0);
    });
  }

  test('is framed while it is drawn, and not afterwards', async () => {
    const selected = selectRegion();
    await isReady();
    await user(moveTo(170, 100), 'mousedown', 1, moveTo(289, 169));
    const during = await until(async () => {
      const picture = await pictureOfScreen();
      return colourAt(picture, 169, 130) === frameColour && picture;
    }, 'the frame to be seen');
    for (const [x, y] of [[290, 130], [220, 99], [220, 170], [169, 99]]) {
      assert.equal(colourAt(during, x, y), frameColour, `${x},${y}`);
    }
    assert.deepEqual(coloursIn(during,
      { x: 170, y: 100, width: 120, height: 70 }),
    { [patchColours[1].join()]: 120 * 70 });
    await user('mouseup', 1);
    await selected;
    await until(async () =>
      colourAt(await pictureOfScreen(), 169, 130) === patchColours[1].join(),
    'the frame to go');
  });

  test('may reach the last pixel of the screen', async () => {
    const selected = selectRegion();
    await isReady();
    await user(moveTo(0, 0), 'mousedown', 1, moveTo(300, 300),
      moveTo(900, 900), 'mouseup', 1);
    assert.deepEqual(await selected, { x: 0, y: 0, width: 640, height: 360 });
  });

  test('is not a click, nor what the wheel does', async () => {
    const selected = selectRegion();
    await isReady();
    await user(moveTo(50, 50), 'click', 1, 'click', 4, 'key', 'a',
      moveTo(60, 60), 'mousedown', 1, moveTo(69, 64), 'mouseup', 1);
    assert.deepEqual(await selected, { x: 60, y: 60, width: 10, height: 5 });
  });
});

describe('the user gives up', () => {
  for (const [what, words] of [
    ['with Esc', ['key', 'Escape']],
    ['with the third button', ['click', 3]],
    ['with Esc while drawing',
      ['mousedown', 1, ...moveTo(90, 90), 'key', 'Escape', 'mouseup', 1]],
  ]) {
    test(what, async () => {
      const selected = selectRegion();
      const rejected = assert.rejects(selected, {
        code: 'ERR_CAPTURE_CANCELLED', message: 'no region was chosen',
      });
      await isReady();
      await user(moveTo(50, 50), words);
      await rejected;
      await isOver();
    });
  }

  test('by what ends the host: mouse and keyboard are free again', async () => {
    const controller = new AbortController();
    const selected = selectRegion({ signal: controller.signal });
    await isReady();
    controller.abort();
    await assert.rejects(selected, { code: 'ABORT_ERR' });
    await isOver();
    const again = selectRegion();
    await isReady();
    await user(moveTo(10, 10), 'mousedown', 1, moveTo(19, 19), 'mouseup', 1);
    assert.equal((await again).width, 10);
  });
});

describe('a region cannot be drawn', () => {
  test('by two at once', async () => {
    const first = selectRegion();
    await isReady();
    await assert.rejects(selectRegion(), {
      code: 'ERR_CAPTURE_NO_DISPLAY',
      message: 'another program holds the pointer of the screen',
    });
    await user('mousedown', 1, moveTo(300, 300), moveTo(310, 320),
      'mouseup', 1);
    await first;
  });

  test('without a display', async () => {
    const { DISPLAY } = process.env;
    process.env.DISPLAY = ':4711';
    try {
      await assert.rejects(selectRegion(), {
        code: 'ERR_CAPTURE_NO_DISPLAY',
        message: 'the X display ":4711" cannot be reached',
      });
    } finally {
      process.env.DISPLAY = DISPLAY;
    }
  });
});

describe('the command', () => {
  test('takes what is drawn', async () => {
    const file = path.join(folder, 'drawn.png');
    const command = startCommand(['shot', file, '--select',
      '--pointer', 'hidden']);
    await command.waitFor(/^Draw a rectangle/, 'the invitation');
    await isReady();
    await user(moveTo(310, 100), 'mousedown', 1, moveTo(320, 110),
      moveTo(329, 119), 'mouseup', 1);
    const { status, stderr } = await command.end();
    assert.equal(stderr, '');
    assert.equal(status, 0);
    const picture = await readPng(file);
    assert.deepEqual([picture.width, picture.height], [20, 20]);
    assert.deepEqual(coloursIn(picture, { x: 0, y: 0, width: 20, height: 20 }),
      { [patchColours[1].join()]: 200, [patchColours[2].join()]: 200 });
  });

  test('frees mouse and keyboard when all of it is killed', async () => {
    const command = startCommand(
      ['shot', path.join(folder, 'killed.png'), '--select']);
    await isReady();
    const inner = command.innerPid();
    process.kill(command.child.pid, 'SIGKILL');
    process.kill(inner, 'SIGKILL');
    await isOver();
  });

  test('leaves no file when the user gives up, and ends with Ctrl-C',
    async () => {
      const file = path.join(folder, 'given-up.mp4');
      const command = startCommand(['record', file, '--select']);
      await isReady();
      await user('key', 'Escape');
      const { status, stderr } = await command.end();
      assert.equal(status, 1);
      assert.equal(stderr, 'linux-capture: no region was chosen ' +
        '(ERR_CAPTURE_CANCELLED)\n');
      const other = startCommand(['record', file, '--select']);
      await isReady();
      other.child.kill('SIGINT');
      assert.equal((await other.end()).status, 130);
      await isOver();
    });
});
