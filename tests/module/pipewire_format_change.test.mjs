import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { portalRequest } from '../support/pipewire_requests.mjs';
import { followsFormats } from '../support/pipewire_version.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const size = { width: 320, height: 180 };
let holder;
const session = usePipeWire({
  async prepare(started) {
    holder = await startHolder(started);
    return [holder];
  },
});
after(() => addon.stopCapture());

const changes = [
  ['resize 160x90', 'BGRx 160x90'],
  ['resize 640x360', 'BGRx 640x360'],
  ['resize 400x200', 'BGRx 400x200', { isStill: true }],
  ['format RGBx', 'RGBx 320x180'],
];
for (const [command, described, { isStill = false } = {}] of changes) {
  const when = isStill ? ' while the picture stands still' : '';
  test(`a change to ${described}${when} is followed or told`, async () => {
    const screen = await startVideo(session, size);
    try {
      const collected = collect();
      addon.captureSetup(portalRequest({
        fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
        node: screen.node,
        ...size,
        temporalLayerCount: 1,
      }));
      await until(() => collected.packets.length > 20, 'pictures');
      if (isStill) screen.command('hold');
      const { length } = collected.packets;
      screen.command(command);
      // What is followed has to be seen to go on.
      if (isStill && followsFormats) screen.command('send');
      const errors = () => collected.events
        .filter(({ state }) => state === 'error');
      await until(() => errors().length > 0 ||
        collected.packets.length > length + 60, 'an error or pictures');
      // What may still be told of it.
      await sleep(300);
      addon.stopCapture();
      await until(() => collected.events.at(-1).reason === 'stopCapture',
        'the last event');
      if (!followsFormats) {
        // By the pictures, or by what the node says, which knows more. A stream
        // that ends for it is no end of the source.
        const [{ reason, code }, ...others] = collected.events
          .filter(({ state }) => state !== 'ready');
        const start = 'video: the source changed the format of its pictures';
        assert.ok([start, `${start} from BGRx 320x180 to ${described}`]
          .includes(reason), reason);
        assert.equal(code, 'format-changed');
        assert.deepEqual(others.map(({ reason: other }) => other),
          ['stopCapture']);
        return;
      }
      assert.deepEqual(errors(), []);
      const numbers = (await decodeFlawlessly(collected.packets))
        .map(readNumber).slice(length);
      assert.ok(new Set(numbers).size > 20, numbers.join(' '));
    } finally {
      addon.stopCapture();
      await screen.stop();
    }
  });
}
