import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { useDisplay } from '../support/display.mjs';
import { readNumber } from '../support/picture.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const screen = Object.freeze({
  type: 'monitor', geometry: { width: 640, height: 360 },
});
const small = Object.freeze({ width: 320, fps: 30, bitrate: 1_000_000 });

useDisplay();

/** Reads `count` packets and leaves the reader open. */
async function take(reader, count) {
  const packets = [];
  while (packets.length < count) {
    const { value, done } = await reader.next();
    assert.equal(done, false, 'the packets end early');
    packets.push(value);
  }
  return packets;
}

/** The older form that the checks of streams take. */
const asStream = (packets) =>
  packets.map((packet) => ({ ...packet, payload: packet.data }));

describe('a capture in two branches', () => {
  let capture;
  before(async () => {
    capture = await startCapture({
      source: screen,
      video: { ...small, branches: [{ width: 160, fps: 15 }] },
    });
  });
  after(() => capture?.stop());

  test('says what it captures', () => {
    assert.deepEqual(capture.branches, [
      { branch: 0, width: 320, height: 180, fps: 30 },
      { branch: 1, width: 160, height: 90, fps: 15 },
    ]);
    assert.deepEqual(capture.source, {
      type: 'monitor',
      name: null,
      geometry: { x: 0, y: 0, width: 640, height: 360 },
    });
    assert.equal(capture.restoreToken, null);
    assert.equal(capture.isActive, true);
    assert.equal(capture.hasAudio, false);
  });

  for (const [branch, width, height] of [[0, 320, 180], [1, 160, 90]]) {
    test(`delivers branch ${branch} from its first keyframe on`, async () => {
      const reader = capture.video({ branch });
      const packets = await take(reader, 20);
      await reader.return();
      assert.equal(packets[0].isKeyframe, true);
      for (const [index, packet] of packets.entries()) {
        assert.deepEqual(Object.keys(packet), [
          'type', 'branch', 'isKeyframe', 'temporalId', 'timestampUs',
          'durationUs', 'width', 'height', 'encodedAtMs', 'data', 'isAfterGap',
        ]);
        assert.equal(packet.branch, branch);
        assert.equal(packet.width, width);
        assert.equal(packet.height, height);
        assert.equal(packet.isAfterGap, false);
        assert.ok(index === 0 ||
          packet.timestampUs > packets[index - 1].timestampUs);
      }
      const pictures = await decodeFlawlessly(asStream(packets));
      assert.ok(pictures.every((picture) => readNumber(picture) !== null));
    });
  }

  test('has one reader for a branch at a time', async () => {
    const reader = capture.video();
    assert.throws(() => capture.video(), {
      name: 'CaptureError',
      code: 'ERR_CAPTURE_READER',
      message: /branch 0 has a reader already/,
    });
    await capture.video({ branch: 1 }).return();
    await reader.return();
    await capture.video().return();
  });

  test('gives a later reader a keyframe soon', async () => {
    const [first] = await take(capture.video(), 1);
    assert.equal(first.isKeyframe, true);
    assert.equal(first.isAfterGap, true);
  });

  test('refuses a branch that is not there', () => {
    assert.throws(() => capture.video({ branch: 2 }),
      { code: 'ERR_CAPTURE_ARGUMENT' });
  });

  test('has no sound', () => {
    assert.throws(() => capture.audio(), { code: 'ERR_CAPTURE_UNSUPPORTED' });
    assert.equal(capture.stats().audio, null);
  });

  test('counts what its readers got', () => {
    const { isActive, encoder, video, sync } = capture.stats();
    assert.equal(isActive, true);
    assert.equal(video.layers, 1);
    const nowUs = Number(process.hrtime.bigint()) / 1e3;
    // The rate adapter may stamp a picture up to one period ahead.
    assert.ok(sync.clockOriginUs + video.lastTimestampUs < nowUs + 1e6 / 15);
    assert.ok(sync.clockOriginUs > nowUs - 600e6);
    assert.equal(encoder.isHardware, false);
    assert.match(encoder.name, /openh264/);
    for (const branch of video.branches) {
      const { reader, frames, keyframes, targetBitsPerSecond } = branch;
      assert.equal(targetBitsPerSecond, null);
      assert.ok(reader.delivered >= 20);
      assert.ok(reader.received >= reader.delivered + reader.unread);
      assert.ok(frames >= reader.received);
      assert.ok(keyframes >= 1);
    }
  });
});

test('a slow reader loses pictures up to a keyframe, and only those',
  async () => {
    const capture = await startCapture({ source: screen, video: small });
    try {
      const reader = capture.video({ maxQueue: 8 });
      const before = await take(reader, 4);
      await until(() => capture.stats().video.branches[0].reader.dropped > 0,
        'the queue to run over');
      const behind = [];
      while (!behind.at(-1)?.isAfterGap) {
        behind.push(...await take(reader, 1));
      }
      const first = behind.at(-1);
      assert.equal(first.isKeyframe, true);
      const packets = [first, ...await take(reader, 10)];
      await decodeFlawlessly(asStream([...before, ...behind.slice(0, -1)]));
      await decodeFlawlessly(asStream(packets));
    } finally {
      await capture.stop();
    }
  });

test('a reader gets all that there was before the stop, then the end',
  async () => {
    const capture = await startCapture({ source: screen, video: small });
    const reader = capture.video();
    const packets = await take(reader, 10);
    const stopped = capture.stop();
    for await (const packet of reader) packets.push(packet);
    await stopped;
    await decodeFlawlessly(asStream(packets));
    const { isActive, video } = capture.stats();
    assert.equal(isActive, false);
    assert.equal(video.branches[0].reader.delivered, packets.length);
    assert.equal(addon.getStats().videoBridgeQueuedPackets, packets.length);
  });

test('keyframes come as often as asked for', async () => {
  const capture = await startCapture({
    source: screen, video: { ...small, keyframeEvery: 0.5 },
  });
  try {
    const packets = await take(capture.video(), 75);
    const keys = packets.filter(({ isKeyframe }) => isKeyframe);
    assert.ok(keys.length >= 4, `${keys.length} keyframes in 2.5 s`);
  } finally {
    await capture.stop();
  }
});

test('forceKeyframe brings a keyframe', async () => {
  const capture = await startCapture({ source: screen, video: small });
  try {
    const reader = capture.video();
    await take(reader, 5);
    assert.equal(capture.forceKeyframe(), true);
    const next = await take(reader, 15);
    assert.ok(next.some(({ isKeyframe }) => isKeyframe));
  } finally {
    await capture.stop();
  }
});
