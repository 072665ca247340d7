import assert from 'node:assert/strict';
import { before, test } from 'node:test';

import { decodeToRgb } from '../support/decode.mjs';
import { runHardware } from '../support/hardware.mjs';
import { colourAt } from '../support/picture.mjs';

// Every picture that the source gives is of this colour all over, whatever its
// size, its format and the place of its rows.
const colour = [0xc8, 0x1e, 0x32];

let result;

before(async () => {
  result = await runHardware(`
    const collected = await runCapture(
      hardwareRequest({ encoderRequirement: 'allow-degraded' }),
      { seconds: 4, branchCount: 3 });
    report(collected);
  `, {
    switches: 'changing-pictures',
    standins: ['pipewire'],
    morePlugins: ['videoconvertscale'],
  });
});

test('the capture lives through every change of its source', () => {
  assert.deepEqual(
    result.events.map(({ state, reason }) => `${state}: ${reason}`), [
      'ready: linux-pipewire-capture-started',
      // Of several pictures in a row that are not what the caps say.
      'error: video: the source changed the format of its pictures',
      'stopped: stopCapture',
    ]);
  // Two of nine forms are not to be read; all others are shown.
  const primary = result.packets.filter(({ branchIndex }) =>
    branchIndex === 0);
  assert.ok(primary.length > 30, String(primary.length));
});

for (const branchIndex of [0, 1, 2]) {
  test(`every picture of branch ${branchIndex} is what the source painted`,
    async () => {
      const { pictures } = await decodeToRgb(result.packets.filter((packet) =>
        packet.branchIndex === branchIndex));
      assert.ok(pictures.length > 10, String(pictures.length));
      for (const picture of pictures) {
        for (const [x, y] of [[0.1, 0.1], [0.5, 0.5], [0.9, 0.9]]) {
          const seen = colourAt(picture, x, y);
          assert.ok(seen.every((value, channel) =>
            Math.abs(value - colour[channel]) <= 6), String(seen));
        }
      }
    });
}

test('what cannot be read is told once', () => {
  assert.deepEqual(
    result.stages.filter((stage) =>
      stage.startsWith('pipeline:dropped-picture=')),
    ['pipeline:dropped-picture=BGRx 640x360 in 920960 bytes for ' +
      'BGRx 640x360']);
});
