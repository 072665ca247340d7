import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { checkCapture, withHost } from '../support/host.mjs';
import { windowRequest } from '../support/requests.mjs';
import { startScene } from '../support/scene.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const cannotBeRead = 'video: the captured X11 window is hidden or partly off ' +
  'the screen: its last picture is repeated until it can be read again';

let xvfb;
let desktop;

before(async () => {
  xvfb = await startXvfb({ width: 800, height: 480 });
  desktop = desktopOf(xvfb.display);
});
after(() => xvfb?.stop());

/** A host and a scene; the scene stands wholly on the screen. */
async function withWindow(run) {
  const scene = await startScene({
    display: xvfb.display, width: 320, height: 180, x: 100, y: 100, fps: 30,
  });
  try {
    await withHost({ display: xvfb.display }, (host) =>
      run(host, scene.window, windowRequest({ handle: scene.window })));
  } finally {
    await scene.stop();
  }
}

const distinct = (numbers) => new Set(numbers).size;

for (const [name, hide, show] of [
  ['moved partly off the screen',
    (window) => desktop.move(window, -100, 100),
    (window) => desktop.move(window, 100, 100)],
  ['moved wholly off the screen',
    (window) => desktop.move(window, 2_000, 100),
    (window) => desktop.move(window, 100, 100)],
  ['hidden',
    (window) => desktop.hide(window),
    (window) => desktop.show(window)],
]) {
  test(`a window that is ${name} is an error and no more`, async () => {
    await withWindow(async (host, window, request) => {
      await host.setup(request);
      await host.packets(10);
      for (const time of [1, 2]) {
        await hide(window);
        assert.deepEqual(await host.errorEvents(time),
          Array(time).fill(cannotBeRead));
        const { gstBusErrors, lastGstBusError } = await host.stats();
        assert.equal(gstBusErrors, time);
        assert.equal(lastGstBusError, cannotBeRead);
        // One picture is repeated, not several old ones in turn.
        await host.packets(10);
        const still = (await host.numbers()).slice(-8);
        assert.equal(distinct(still), 1, still.join(' '));
        assert.notEqual(still[0], null);

        await show(window);
        await host.packets(20);
        const moving = (await host.numbers()).slice(-10);
        assert.ok(distinct(moving) > 5, moving.join(' '));
      }
      assert.equal((await host.errorEvents()).length, 2);
      await host.stop();
      await checkCapture(host, request);
    });
  });
}

test('a window that is hidden from the start is captured once it is shown',
  async () => {
    await withWindow(async (host, window, request) => {
      await desktop.hide(window);
      await host.setup(request);
      assert.deepEqual(await host.errorEvents(1), [cannotBeRead]);
      await desktop.show(window);
      await host.packets(20);
      const moving = (await host.numbers()).slice(-10);
      assert.ok(distinct(moving) > 5, moving.join(' '));
      await host.stop();
      await checkCapture(host, request);
    });
  });

test('a window behind another is captured without an error', async () => {
  await withWindow(async (host, window, request) => {
    const other = await startScene({
      display: xvfb.display, width: 400, height: 300, x: 60, y: 60, fps: 5,
    });
    try {
      await desktop.raise(other.window);
      await host.setup(request);
      await host.packets(20);
      assert.deepEqual(await host.errorEvents(), []);
      await desktop.raise(window);
      await host.packets(20);
      const moving = (await host.numbers()).slice(-10);
      assert.ok(distinct(moving) > 5, moving.join(' '));
      assert.deepEqual(await host.errorEvents(), []);
    } finally {
      await other.stop();
    }
  });
});

test('a window that is resized is captured on at the requested size',
  async () => {
    await withWindow(async (host, window, request) => {
      await host.setup(request);
      await host.packets();
      for (const [width, height] of [[200, 100], [401, 301], [320, 180]]) {
        await desktop.resize(window, width, height);
        await host.packets(20);
      }
      assert.deepEqual(await host.errorEvents(), []);
      const sizes = await host.call(({ collected }) =>
        [...new Set(collected.packets.map(({ width, height }) =>
          `${width}x${height}`))]);
      assert.deepEqual(sizes, ['320x180']);
      // Back at its own size the whole picture is legible.
      const moving = (await host.numbers()).slice(-10);
      assert.ok(distinct(moving) > 5, moving.join(' '));
      assert.ok(!moving.includes(null), moving.join(' '));
      await host.stop();
      await checkCapture(host, request);
    });
  });

test('a window that does not exist is refused by name', async () => {
  await withHost({ display: xvfb.display }, async (host) => {
    for (const handle of [0x7ffffff, 2 ** 32 + 1]) {
      await assert.rejects(host.setup(windowRequest({ handle })),
        { name: 'Error', message: `X11 window ${handle} does not exist` });
      assert.equal(await host.isCapturing(), false);
    }
  });
});
