import assert from 'node:assert/strict';
import { after, afterEach, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { readNumber, typicalColourError } from '../support/picture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

let desktop;
before(async () => {
  desktop = await startKwin();
  enterDesktop(desktop);
});
after(() => desktop?.stop());
afterEach(() => addon.stopCapture());

/** Runs `use` with a window and what a capture of it collects. */
async function withCapture(use) {
  const window = await desktop.startWindow({ fps: 20 });
  const cast = await desktop.startCast();
  try {
    await withRequest(desktop, cast.node, { temporalLayerCount: 1 },
      async (request) => {
        const collected = collect();
        addon.captureSetup(request);
        await until(() => collected.packets.length > 0, 'a picture', 20_000);
        await use({ window, cast, collected });
      });
  } finally {
    await cast.stop();
    await window.stop();
  }
}

const errorsOf = ({ events }) => events
  .filter(({ state }) => state === 'error')
  .map(({ reason, code }) => ({ reason, code }));

test('a window of KDE is captured in its colours and in motion', async () => {
  await withCapture(async ({ collected }) => {
    await until(() => collected.packets.length >= 45, 'pictures', 20_000);
    assert.deepEqual(errorsOf(collected), []);
    const pictures = await decodeFlawlessly(collected.packets);
    const error = typicalColourError(pictures);
    assert.ok(error <= 6, `a colour is off by ${error}`);
    const numbers = pictures.map(readNumber)
      .filter((number) => number !== null);
    assert.ok(new Set(numbers).size >= pictures.length / 4, numbers.join(' '));
    assert.deepEqual(numbers, numbers.toSorted((a, b) => a - b));
  });
});

test('a still window of KDE goes on, with a keyframe when asked', async () => {
  await withCapture(async ({ window, collected }) => {
    window.command('hold');
    await window.waitFor(/^holding$/m, 'a still window');
    const since = collected.packets.length;
    addon.forceKeyframe();
    await until(() => collected.packets.slice(since)
      .some(({ isKeyFrame }) => isKeyFrame), 'a keyframe');
    const { length } = collected.packets;
    await until(() => collected.packets.length >= length + 10, 'repetitions');
    const { number } = await window.sendOne();
    const sent = collected.packets.length;
    await until(() => collected.packets.length > sent + 5, 'the new picture');
    const pictures = await decodeFlawlessly(collected.packets);
    assert.equal(readNumber(pictures.at(-1)), number);
    assert.deepEqual(errorsOf(collected), []);
  });
});

// The compositor is killed last.
for (const [what, end] of [
  ['a session that the compositor is asked to end',
    ({ cast }) => cast.command('stop')],
  ['a session whose client goes away', ({ cast }) => cast.stop()],
  ['a window that is closed', ({ window }) => window.stop()],
  ['a compositor that is killed', () => desktop.compositor.kill()],
]) {
  test(`what ends a stream of KDE is told: ${what}`, async () => {
    await withCapture(async ({ window, cast, collected }) => {
      await end({ window, cast });
      // Later versions of PipeWire have something to say of their own.
      const { code } = await until(() => errorsOf(collected).find(
        ({ reason }) => reason ===
          `video: PipeWire target ${cast.node.id} went away`),
      'the error event that names it', 20_000);
      assert.equal(code, 'source-lost');
      // It is the host that ends a capture, and can begin another.
      assert.equal(addon.isCapturing(), true);
    });
  });
}
