import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { colourAt, readNumber } from '../support/picture.mjs';
import { startHolder } from '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

const leftButton = 272;

/** Drags, resizes, puts away and brings back, over and over. */
async function use(window, cast, seconds) {
  const end = performance.now() + seconds * 1000;
  const done = { sizes: 0, moves: 0, minimised: 0 };
  while (performance.now() < end) {
    for (const size of ['400 224', '240 136', '320 180']) {
      window.command(`size ${size}`);
      done.sizes += 1;
      await sleep(1500);
    }
    cast.command('point 100 60');
    cast.command(`button ${leftButton} 1`);
    for (let step = 1; step <= 10; step += 1) {
      cast.command(`point ${100 + 3 * step} ${60 + 2 * step}`);
      await sleep(30);
    }
    cast.command(`button ${leftButton} 0`);
    done.moves += 1;
    cast.command('minimize 1');
    await sleep(400);
    cast.command('minimize 0');
    done.minimised += 1;
    await sleep(600);
  }
  return done;
}

/** Where two pictures of a still window differ clearly. */
function differences(one, other) {
  const places = [];
  for (let y = 8; y < one.height; y += 16) {
    for (let x = 8; x < one.width; x += 16) {
      const at = [x / one.width, y / one.height, 7];
      const [a, b] = [one, other].map((picture) => colourAt(picture, ...at));
      if (a.some((value, channel) => Math.abs(value - b[channel]) > 24)) {
        places.push([x, y]);
      }
    }
  }
  return places;
}

/** What comes since the last keyframe, decoded. */
async function lastPictures(packets) {
  const at = packets.findLastIndex(({ isKeyframe }) => isKeyframe);
  return decodeFlawlessly(packets.slice(at).map((packet) =>
    ({ ...packet, payload: packet.data })));
}

test('a window of KDE in use: no error but at its sizes, no stale block',
  async (t) => {
    const seconds = 8;
    const desktop = await startKwin();
    enterDesktop(desktop);
    const holder = await startHolder(desktop.pipeWire);
    try {
      const window = await desktop.startWindow({ fps: 20 });
      const cast = await desktop.startCast({ cursor: 'embedded' });
      const capture = await startCapture({
        source: {
          type: 'pipewire', kind: 'window', nodeId: cast.node.id,
          fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
          ...desktop.size,
        },
        video: { fps: 20 },
      });
      const errors = [];
      capture.events.on('error', (error) => errors.push(error.nativeCode));
      const packets = [];
      const read = (async () => {
        for await (const packet of capture.video()) packets.push(packet);
      })();
      const begin = performance.now();
      const done = await use(window, cast, seconds);
      const rate = packets.length / (performance.now() - begin) * 1000;
      // All changes have been taken in when the last picture is seen.
      window.command('hold');
      await window.waitFor(/^holding$/m, 'a still window');
      const { number } = await window.sendOne();
      await until(async () =>
        readNumber((await lastPictures(packets)).at(-1)) === number,
      'the last picture', 60_000);
      const still = packets.length - 1;
      capture.forceKeyframe();
      const key = await until(() => {
        const at = packets.findIndex(({ isKeyframe }, index) =>
          index > still && isKeyframe);
        return at === -1 ? 0 : at;
      }, 'a keyframe');
      assert.equal(capture.isActive, true);
      await capture.stop();
      await read;
      const pictures = await decodeFlawlessly(packets.map((packet) =>
        ({ ...packet, payload: packet.data })));
      t.diagnostic(JSON.stringify({ ...done, errors: errors.length,
        picturesASecond: rate }));
      assert.deepEqual(errors.filter((code) => code !== 'format-changed'), []);
      assert.deepEqual(differences(pictures[still], pictures[key]), []);
      assert.ok(pictures.length > 20, `${pictures.length} pictures`);
    } finally {
      addon.stopCapture();
      await holder.stop();
      await desktop.stop();
    }
  });
