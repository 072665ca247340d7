import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { heldUp } from '../support/held_up.mjs';
import { readNumber } from '../support/picture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

const branches = [
  { width: 240, height: 136, fps: 20, bitrate: 1_000_000 },
  { width: 160, height: 90, fps: 15, bitrate: 1_000_000 },
];
const wanted = 10;

/**
 * Shows one picture, and waits. Tells its number and whether the source stood
 * still behind it: this compositor sends the picture over and over when two
 * changes came faster than the rate that it was asked for.
 */
async function showOne(window, collected, pauseMs) {
  const { number } = await window.sendOne();
  await sleep(150 + pauseMs);
  const { length } = collected.ofBranch(0);
  await sleep(300);
  return { number,
    isFollowedByStillness: collected.ofBranch(0).length - length <= 5 };
}

test('a still window of KDE: no branch holds up the picture that ends it',
  async (context) => {
    const desktop = await startKwin();
    enterDesktop(desktop);
    try {
      const window = await desktop.startWindow({ fps: 10 });
      const cast = await desktop.startCast();
      await withRequest(desktop, cast.node, { branches }, async (request) => {
        const collected = collect();
        addon.captureSetup(request);
        window.command('hold');
        await window.waitFor(/^holding$/m, 'a still window');
        const sent = [];
        const all = [];
        let isStill = false;
        for (let shown = 0; sent.length < wanted; shown += 1) {
          if (shown === 6 * wanted) break;
          const { number, isFollowedByStillness } =
            await showOne(window, collected, 37 * (shown % 10));
          // Between two of its own pictures nothing can be held up for long.
          if (isStill && isFollowedByStillness) sent.push(number);
          all.push(number);
          isStill = isFollowedByStillness;
        }
        addon.stopCapture();
        // In some runs it never stands still: then each one is shown.
        if (sent.length < wanted) {
          const packets = collected.ofBranch(0);
          const seen = new Set((await decodeFlawlessly(packets)).map(readNumber));
          assert.deepEqual(all.filter((number) => !seen.has(number)), []);
          context.diagnostic('the compositor repeated its pictures all the time');
          return;
        }
        const late = [];
        for (const index of [0, 1, 2]) {
          const packets = collected.ofBranch(index);
          const numbers = (await decodeFlawlessly(packets)).map(readNumber);
          late.push(...heldUp(packets, numbers, sent)
            .map((number) => `${number} in branch ${index}`));
        }
        // A busy machine delays a sign of life now and then.
        assert.ok(late.length <= 2, late.join());
        assert.deepEqual(collected.events.filter(
          ({ state }) => state === 'error'), []);
      });
    } finally {
      addon.stopCapture();
      await desktop.stop();
    }
  });
