import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect, monotonicUs } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { portalRequest } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const size = { width: 320, height: 180 };
const rates = [30, 20, 15];
let holder;
const session = usePipeWire({
  async prepare(started) {
    holder = await startHolder(started);
    return [holder];
  },
});
after(() => addon.stopCapture());

const jumps = {
  'an hour ahead': [3_600],
  'an hour back': [-3_600],
  'back to before the capture': [-86_400],
  'to and fro': [3_600, -7_200, 3_600, 1, -1],
};

for (const [name, seconds] of Object.entries(jumps)) {
  test(`times that jump ${name} give no flood and no gap`, async () => {
    const screen = await startVideo(session, size);
    try {
      const collected = collect();
      addon.captureSetup(portalRequest({
        fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
        node: screen.node,
        ...size,
        fps: rates[0],
        branches: [
          { width: 160, height: 90, fps: rates[1], bitrate: 300_000 },
          { width: 80, height: 44, fps: rates[2], bitrate: 300_000 },
        ],
      }));
      await until(() => collected.packets.length > 60, 'pictures');
      const begin = monotonicUs();
      const first = collected.packets.length;
      const firstOfBranch = collected.ofBranch(0).length;
      for (const jump of seconds) {
        screen.command(`jump ${jump}`);
        const { length } = collected.packets;
        await until(() => collected.packets.length > length + 20, 'pictures');
      }
      await until(() => monotonicUs() > begin + 1_000_000, 'a second');

      const beforeStop = performance.now();
      addon.stopCapture();
      const tookMs = performance.now() - beforeStop;
      assert.ok(tookMs < 2_000, `the stop took ${tookMs} ms`);

      const passed = (collected.arrivalsUs.at(-1) - begin) / 1e6;
      const expected = rates.reduce((sum, rate) => sum + rate, 0) * passed;
      const delivered = collected.packets.length - first;
      assert.ok(delivered < 1.5 * expected + 30, `${delivered} packets`);

      const origin = addon.getStats().sessionClockOriginUs;
      for (let index = 0; index < rates.length; index += 1) {
        const packets = collected.ofBranch(index);
        for (let i = 1; i < packets.length; i += 1) {
          assert.ok(packets[i].timestampUs > packets[i - 1].timestampUs);
        }
        assert.ok(packets.at(-1).timestampUs <
          monotonicUs() - origin + 1_000_000);
      }
      const numbers = (await decodeFlawlessly(collected.ofBranch(0)))
        .map(readNumber);
      assert.ok(new Set(numbers).size > 0.7 * numbers.length,
        numbers.join(' '));
      // As many as the producer sent, which may be late itself.
      const afterJump = numbers.slice(firstOfBranch);
      const sent = afterJump.at(-1) - afterJump[0] + 1;
      assert.ok(afterJump.length > 0.6 * sent,
        `${afterJump.length} of ${sent}: ${afterJump.join(' ')}`);
    } finally {
      addon.stopCapture();
      await screen.stop();
    }
  });
}
