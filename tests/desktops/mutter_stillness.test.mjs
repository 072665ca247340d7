import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { heldUp } from '../support/held_up.mjs';
import { readNumber } from '../support/picture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { monitorName, startMutter } from './support/mutter.mjs';

const rates = [30, 20, 15];
const branches = [
  { width: 480, height: 270, fps: rates[1], bitrate: 1_000_000 },
  { width: 320, height: 180, fps: rates[2], bitrate: 1_000_000 },
];
let desktop;
let window;
before(async () => {
  desktop = await startMutter();
  enterDesktop(desktop);
  window = await desktop.startWindow({ ...desktop.size, isFullscreen: true });
});
after(async () => {
  addon.stopCapture();
  await desktop?.stop();
});

test('a still monitor of GNOME: signs of life, a keyframe, prompt pictures',
  async () => {
    const cast = await desktop.startCast(['--monitor', monitorName]);
    await withRequest(desktop, cast.node, { branches }, async (request) => {
      const collected = collect();
      addon.captureSetup(request);
      await until(() => collected.packets.length > 30, 'pictures');
      window.command('hold');
      await window.waitFor(/^holding$/m, 'the window to stand still');
      await sleep(500);
      const stillFrom = collected.packets.length;
      await sleep(2_000);
      for (const index of rates.keys()) {
        const count = collected.packets.slice(stillFrom)
          .filter(({ branchIndex }) => branchIndex === index).length;
        assert.ok(count >= 2 && count <= 2.5 * rates[index],
          `${count} packets in two still seconds`);
      }
      const forcedAt = collected.packets.length;
      assert.equal(addon.forceKeyframe(), true);
      await until(() => [...rates.keys()].every((index) =>
        collected.packets.slice(forcedAt).some(({ branchIndex, isKeyFrame }) =>
          branchIndex === index && isKeyFrame)), 'keyframes', 2_000);

      const sent = [];
      for (let count = 0; count < 10; count += 1) {
        sent.push((await window.sendOne()).number);
        await sleep(300 + 37 * count);
      }
      addon.stopCapture();
      for (const index of rates.keys()) {
        const packets = [...collected.ofBranch(index)];
        const numbers = (await decodeFlawlessly(packets)).map(readNumber);
        const late = heldUp(packets, numbers, sent);
        assert.ok(late.length <= 2, `branch ${index}: ${late} of ${sent}`);
      }
      assert.deepEqual(collected.events.filter(
        ({ state }) => state === 'error'), []);
    });
    await cast.stop();
  });
