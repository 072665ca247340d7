import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { runCapture } from '../support/capture.mjs';
import { colourAt, patchColours, readNumber, typicalColourError } from
  '../support/picture.mjs';
import { isPipeWireAtLeast } from '../support/pipewire_version.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { monitorName, startMutter } from './support/mutter.mjs';

let desktop;
before(async () => {
  desktop = await startMutter();
  enterDesktop(desktop);
  await desktop.startWindow({ ...desktop.size, isFullscreen: true });
});
after(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

/** Captures what `args` ask of the compositor; returns the pictures. */
async function picturesOf(args) {
  const cast = await desktop.startCast(args);
  try {
    return await withRequest(desktop, cast.node, {}, async (request) => {
      const captured = await runCapture(request,
        { seconds: 2, branchCount: 1 });
      assert.deepEqual(captured.events.map(({ state }) => state),
        ['ready', 'stopped']);
      return decodeFlawlessly(captured.packets);
    });
  } finally {
    await cast.stop();
  }
}

for (const [source, args] of [
  ['a monitor', ['--monitor', monitorName]],
  ['a window', ['--focused']],
]) {
  test(`${source} of GNOME is captured in its colours and in motion`,
    async () => {
      const pictures = await picturesOf(args);
      const error = typicalColourError(pictures);
      assert.ok(error <= 6, `a colour is off by ${error}`);
      const numbers = pictures.map(readNumber)
        .filter((number) => number !== null);
      assert.ok(new Set(numbers).size >= pictures.length / 4,
        numbers.join(' '));
      assert.deepEqual(numbers, numbers.toSorted((a, b) => a - b));
    });
}

// Mutter sends the whole monitor's size and says in each picture which part is
// the window; the source of PipeWire loses that before 1.6.
test('a smaller window of GNOME is the corner of a picture of that size',
  async () => {
    const { size } = desktop;
    const part = { width: 320, height: 180 };
    const window = await desktop.startWindow(part);
    await window.waitFor(/^focused$/m, 'the focus');
    const pictures = await picturesOf(['--focused']);
    await window.stop();
    const seen = pictures.at(-1);
    const isWhole = isPipeWireAtLeast('1.6.0');
    const across = isWhole ? 1 : part.width / size.width;
    const down = isWhole ? 1 : part.height / size.height;
    patchColours.forEach((colour, patch) => {
      const found = colourAt(seen, (patch % 4 + 0.5) / 4 * across,
        (patch < 4 ? 3 / 8 : 5 / 8) * down);
      colour.forEach((value, channel) => {
        assert.ok(Math.abs(value - found[channel]) <= 12,
          `patch ${patch}: ${found} for ${colour}`);
      });
    });
    if (isWhole) return;
    assert.ok(Math.max(...colourAt(seen, 0.9, 0.9)) < 16);
  });

test('a virtual monitor of GNOME is captured though nothing is on it',
  async () => {
    const pictures = await picturesOf(['--virtual']);
    // More than the one that the compositor draws: it is repeated.
    assert.ok(pictures.length > 2, `${pictures.length}`);
  });
