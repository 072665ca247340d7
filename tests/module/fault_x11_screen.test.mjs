import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { checkCapture, withHost } from '../support/host.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { startScene } from '../support/scene.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const full = { width: 800, height: 480 };
const whole = monitorRequest({
  sourceWidth: full.width, sourceHeight: full.height,
});

let xvfb;
let scene;
let desktop;

before(async () => {
  xvfb = await startXvfb(full);
  desktop = desktopOf(xvfb.display);
  scene = await startScene({ ...full, display: xvfb.display, fps: 30 });
});
after(async () => {
  await scene?.stop();
  await xvfb?.stop();
});

const run = (test) => withHost({ display: xvfb.display }, test);

test('a rectangle outside the screen is refused with both sizes', async () => {
  await run(async (host) => {
    for (const [where, told] of [
      [{ x: 800 }, 'at 800,0 lies outside the X11 screen of 800x480'],
      [{ y: 480 }, 'at 0,480 lies outside the X11 screen of 800x480'],
      [{ x: -1 }, 'at -1,0 begins outside the X11 screen of 800x480'],
      [{ y: -90 }, 'at 0,-90 begins outside the X11 screen of 800x480'],
      [{ x: 2 ** 31 - 1 },
        'at 2147483647,0 lies outside the X11 screen of 800x480'],
    ]) {
      await assert.rejects(host.setup(monitorRequest(where)), {
        name: 'Error', message: `source.geometry 640x360 ${told}`,
      });
      assert.equal(await host.isCapturing(), false);
    }
    await checkCapture(host, whole);
    assert.doesNotMatch(host.errors.text, /WARNING|CRITICAL/);
  });
});

test('of a rectangle beyond the edge only its part of the screen is recorded',
  async () => {
    await run(async (host) => {
      // The lower right quarter and as much again: what lies left of it and
      // above it, with the scene's numbers, must not be seen.
      await host.setup(monitorRequest({
        x: 400, y: 240, sourceWidth: 800, sourceHeight: 480,
        width: 320, height: 192,
      }));
      await host.packets(10);
      assert.deepEqual(await host.errorEvents(), []);
      const numbers = await host.numbers();
      assert.ok(numbers.every((number) => number === null),
        numbers.join(' '));
      assert.ok(host.stages().includes(
        'launch:limited-to-x11-screen=800x480'));
      assert.match((await host.stats()).videoPipeline,
        /^ximagesrc startx=400 starty=240 endx=1199 endy=719 /);
    });
  });

test('the part of a rectangle keeps its proportions', async () => {
  await run(async (host) => {
    // 400x480 of the screen in a branch for 1200x480: a third of its width.
    await host.setup(monitorRequest({
      x: 400, y: 0, sourceWidth: 1200, sourceHeight: 480,
      width: 480, height: 192,
    }));
    await host.packets(10);
    for (const x of [0.05, 0.3, 0.7, 0.95]) {
      const colour = await host.lastColour(x, 0.05);
      const isBorder = colour.every((value) => value < 24);
      assert.equal(isBorder, x < 1 / 3 || x > 2 / 3, `${x}: ${colour}`);
    }
    const inside = await host.lastColour(0.6, 0.6);
    assert.ok(inside.some((value) => value > 40), String(inside));
  });
});

test('a screen that shrinks never widens what is recorded', async () => {
  await run(async (host) => {
    try {
      // Its lower right quarter, which has none of the scene's numbers.
      await host.setup(monitorRequest({
        x: 400, y: 240, sourceWidth: 400, sourceHeight: 240,
      }));
      await host.packets();
      await desktop.setScreenSize(600, 400);
      await host.errorEvents(1);
      await host.packets(20);
      await desktop.setScreenSize(full.width, full.height);
      await host.packets(20);
      const numbers = await host.numbers();
      assert.ok(numbers.every((number) => number === null),
        numbers.join(' '));
    } finally {
      await desktop.setScreenSize(full.width, full.height);
    }
  });
});

test('a change that leaves the rectangle on the screen changes nothing',
  async () => {
    await run(async (host) => {
      try {
        await host.setup(monitorRequest({ sourceWidth: 320 }));
        for (const size of [[700, 400], [400, 360], [800, 480]]) {
          await host.packets(10);
          await desktop.setScreenSize(...size);
        }
        await host.packets(10);
        assert.deepEqual(await host.errorEvents(), []);
      } finally {
        await desktop.setScreenSize(full.width, full.height);
      }
    });
  });

test('a screen that shrinks is an error, and its return goes on', async () => {
  await run(async (host) => {
    try {
      await host.setup(whole);
      await host.packets();
      await desktop.setScreenSize(400, 300);
      assert.deepEqual(await host.errorEvents(1), [
        'video: the captured rectangle is no longer inside the X11 screen: ' +
        'its last picture is repeated until it can be read again',
      ]);
      await host.packets();
      await desktop.setScreenSize(full.width, full.height);
      await host.packets(20);
      const moving = (await host.numbers()).slice(-10);
      assert.ok(new Set(moving).size > 5, moving.join(' '));
      assert.equal((await host.errorEvents()).length, 1);

      // A new capture with the old rectangle takes what there is of it.
      await desktop.setScreenSize(400, 300);
      await checkCapture(host, whole);
      await desktop.setScreenSize(full.width, full.height);
      await checkCapture(host, whole);
    } finally {
      await desktop.setScreenSize(full.width, full.height);
    }
  });
});
