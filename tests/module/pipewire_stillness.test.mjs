import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../support/addon.mjs';
import { collect, monotonicUs } from '../support/capture.mjs';
import { heldUp } from '../support/held_up.mjs';
import { readNumber } from '../support/picture.mjs';
import { portalRequest } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const size = { width: 640, height: 360 };
const rates = [30, 20, 15];
let screen;
let holder;
usePipeWire({
  async prepare(session) {
    screen = await startVideo(session, size);
    holder = await startHolder(session);
    return [screen, holder];
  },
});

const request = () => portalRequest({
  fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
  node: screen.node,
  ...size,
  fps: rates[0],
  branches: [
    { width: 480, height: 270, fps: rates[1], bitrate: 1_000_000 },
    { width: 320, height: 180, fps: rates[2], bitrate: 1_000_000 },
  ],
});

describe('a screen on which nothing changes for ten seconds', () => {
  const stillSeconds = 10;
  const branches = [];
  let stillFromUs;
  let stillToUs;
  let forcedUs;
  let sent;

  before(async () => {
    const collected = collect();
    addon.captureSetup(request());
    await until(() => collected.packets.length > 60, 'pictures');
    screen.command('hold');
    await screen.waitFor(/^holding$/m, 'the screen to stand still');
    stillFromUs = monotonicUs();
    // This is the time under test, not a wait for something to happen.
    await sleep(stillSeconds * 1_000 - 1_500);
    forcedUs = monotonicUs();
    assert.equal(addon.forceKeyframe(), true);
    await sleep(1_500);
    stillToUs = monotonicUs();
    screen.command('once');
    const [, number, at] = await screen.waitFor(
      /^sent (\d+) at=(\d+)$/m, 'one picture');
    sent = { number: Number(number), us: Number(at) };
    // One more second of stillness behind it: nothing pushes it out.
    await until(() => monotonicUs() > sent.us + 1_000_000, 'a second');
    screen.command('send');
    await until(() => monotonicUs() > sent.us + 2_000_000, 'a second');
    addon.stopCapture();

    for (let index = 0; index < rates.length; index += 1) {
      const packets = collected.ofBranch(index);
      const arrivalsUs = collected.arrivalsUs.filter((_, position) =>
        collected.packets[position].branchIndex === index);
      branches.push({
        packets,
        arrivalsUs,
        numbers: (await decodeFlawlessly(packets)).map(readNumber),
      });
    }
  });

  for (const [index, fps] of rates.entries()) {
    test(`branch ${index}, ${fps}: at least one packet a second`, () => {
      const times = branches[index].arrivalsUs
        .filter((us) => us >= stillFromUs && us <= stillToUs);
      const edges = [stillFromUs, ...times, stillToUs];
      for (let i = 1; i < edges.length; i += 1) {
        assert.ok(edges[i] - edges[i - 1] < 1e6,
          `nothing for ${edges[i] - edges[i - 1]} us`);
      }
    });

    test(`branch ${index}, ${fps}: a forced keyframe within a second`, () => {
      const { packets, arrivalsUs } = branches[index];
      const isForced = packets.some(({ isKeyFrame }, position) =>
        isKeyFrame && arrivalsUs[position] >= forcedUs &&
        arrivalsUs[position] < forcedUs + 1e6);
      assert.ok(isForced);
    });

    test(`branch ${index}, ${fps}: the new picture comes at once`, () => {
      const { arrivalsUs, numbers } = branches[index];
      const position = numbers.indexOf(sent.number);
      assert.notEqual(position, -1, numbers.slice(-60).join(' '));
      const delayUs = arrivalsUs[position] - sent.us;
      // Any picture waits for the next one, here the source's repetition, and
      // then for its turn in the branch.
      assert.ok(delayUs < 2e6 / fps + 200_000, `${delayUs} us`);
    });

    test(`branch ${index}, ${fps}: no pile of copies comes with it`, () => {
      const { packets, arrivalsUs } = branches[index];
      const inHalfASecond = arrivalsUs.filter((us) =>
        us >= sent.us && us < sent.us + 500_000).length;
      assert.ok(inHalfASecond <= fps, `${inHalfASecond} packets`);
      for (let i = 1; i < packets.length; i += 1) {
        assert.ok(packets[i].timestampUs > packets[i - 1].timestampUs);
      }
    });
  }
});

test('no picture after a pause waits for the next one', async () => {
  const collected = collect();
  addon.captureSetup(request());
  await until(() => collected.packets.length > 30, 'pictures');
  screen.command('hold');
  const already = screen.sentUs().size;
  for (let count = 1; count <= 10; count += 1) {
    // The distances are all the phases of the source's repetitions.
    await sleep(300 + 37 * count);
    screen.command('once');
    await until(() => screen.sentUs().size === already + count, 'a picture');
  }
  const sent = [...screen.sentUs().keys()].slice(already);
  await sleep(300);
  addon.stopCapture();
  screen.command('send');
  for (let index = 0; index < rates.length; index += 1) {
    const packets = [...collected.ofBranch(index)];
    const numbers = (await decodeFlawlessly(packets)).map(readNumber);
    const late = heldUp(packets, numbers, sent);
    // A stall of the machine may look like it.
    assert.ok(late.length <= 2, `branch ${index}: ${late} of ${sent}`);
    for (let i = 1; i < packets.length; i += 1) {
      assert.ok(packets[i].timestampUs > packets[i - 1].timestampUs);
    }
  }
});
