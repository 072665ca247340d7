import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { monitorName, startMutter } from './support/mutter.mjs';

const place = { x: 320, y: 180 };

/** The picture of the monitor once the pointer has come to its middle. */
async function pictureWith(desktop, cursorMode) {
  const cast = await desktop.startCast(
    ['--monitor', monitorName, '--cursor', cursorMode, '--input']);
  try {
    return await withRequest(desktop, cast.node, {}, async (request) => {
      const collected = collect();
      addon.captureSetup(request);
      await until(() => collected.packets.length > 5, 'pictures');
      cast.command('motion -2000 -2000');
      cast.command(`motion ${place.x} ${place.y}`);
      const moved = collected.packets.length;
      // The repetitions of a still screen are sharper than the first picture.
      await until(() => collected.packets.length > moved + 12, 'more of them');
      addon.stopCapture();
      assert.deepEqual(collected.events.filter(
        ({ state }) => state === 'error'), []);
      return (await decodeFlawlessly(collected.packets)).at(-1);
    });
  } finally {
    await cast.stop();
  }
}

/** The places where two pictures clearly differ. */
function differences(one, other) {
  const places = [];
  for (let at = 0; at < one.data.length; at += 3) {
    const error = Math.max(...[0, 1, 2].map((channel) =>
      Math.abs(one.data[at + channel] - other.data[at + channel])));
    if (error > 40) {
      places.push({ x: at / 3 % one.width,
        y: Math.floor(at / 3 / one.width) });
    }
  }
  return places;
}

test('GNOME\'s pointer is in the picture where it was asked for', async () => {
  const desktop = await startMutter();
  enterDesktop(desktop);
  try {
    const hidden = await pictureWith(desktop, 'hidden');
    const pointer =
      differences(hidden, await pictureWith(desktop, 'embedded'));
    assert.ok(pointer.length > 50, `${pointer.length} pixels`);
    for (const { x, y } of pointer) {
      assert.ok(Math.abs(x - place.x) < 48 && Math.abs(y - place.y) < 48,
        `a difference at ${x}, ${y}`);
    }
    // Beside the pictures it is left out: nothing here draws it.
    assert.deepEqual(
      differences(hidden, await pictureWith(desktop, 'metadata')), []);
  } finally {
    addon.stopCapture();
    await desktop.stop();
  }
});
