import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

const places = [{ x: 20, y: 120 }, { x: 40, y: 130 }];
// Of the window's own pointer, a square whose hot spot is its first corner.
const pointerLength = 24;

/** The pixels of a picture that have the colour of the window's pointer. */
function pointerIn({ width, data }) {
  const pixels = [];
  for (let at = 0; at < data.length; at += 3) {
    if (data[at] > 180 && data[at + 1] < 80 && data[at + 2] > 180) {
      pixels.push({ x: at / 3 % width, y: Math.floor(at / 3 / width) });
    }
  }
  return pixels;
}

/** The pictures of a still window, one for each place of the pointer. */
async function picturesOf(desktop, cursor) {
  const window = await desktop.startWindow({ fps: 10 });
  const cast = await desktop.startCast({ cursor });
  try {
    return await withRequest(desktop, cast.node, {}, async (request) => {
      const collected = collect();
      addon.captureSetup(request);
      await until(() => collected.packets.length > 5, 'pictures');
      window.command('hold');
      await window.waitFor(/^holding$/m, 'a still window');
      const seen = [];
      for (const { x, y } of places) {
        cast.command(`point ${x} ${y}`);
        await window.sendOne();
        const { length } = collected.packets;
        // The repetitions of a still window are sharper.
        await until(() => collected.packets.length > length + 12, 'more');
        seen.push(collected.packets.length - 1);
      }
      addon.stopCapture();
      assert.deepEqual(collected.events.filter(
        ({ state }) => state === 'error'), []);
      const pictures = await decodeFlawlessly(collected.packets);
      return seen.map((at) => pictures[at]);
    });
  } finally {
    await cast.stop();
    await window.stop();
  }
}

test('KDE\'s pointer is in the picture of a window where it was asked for',
  async () => {
    const desktop = await startKwin();
    enterDesktop(desktop);
    try {
      for (const picture of await picturesOf(desktop, 'hidden')) {
        assert.deepEqual(pointerIn(picture), []);
      }
      const shown = await picturesOf(desktop, 'embedded');
      shown.forEach((picture, index) => {
        const pixels = pointerIn(picture);
        const { x, y } = places[index];
        assert.ok(pixels.length > 400, `${pixels.length} pixels`);
        for (const pixel of pixels) {
          assert.ok(Math.abs(pixel.x - x - pointerLength / 2) <= 13 &&
            Math.abs(pixel.y - y - pointerLength / 2) <= 13,
          `of the pointer at ${x}, ${y}: ${pixel.x}, ${pixel.y}`);
        }
      });
    } finally {
      addon.stopCapture();
      await desktop.stop();
    }
  });
