import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { startCapture } from 'linux-capture-addon/session';
import { Pauses } from '../../lib/session/pauses.js';
import { useDisplay } from '../support/display.mjs';

const pictureUs = 33_333;
const soundUs = 20_000;
const rate = 48_000;
const framesPerBuffer = rate * soundUs / 1e6;

// Sound names its own place in the capture, as far as 16 bits reach.
const mark = (frame) => frame % 30_011;

/**
 * A capture whose clock is the test's: pictures come 50 ms late, a keyframe
 * two pictures after it was asked for, and sound 110 ms late.
 */
function fakeCapture() {
  const out = { video: [], audio: [], resumed: 0 };
  const capture = { nowUs: 0, out, asked: 0 };
  let keyframeIn = 0;
  const pauses = new Pauses({
    deliver: (packet) => out[packet.type].push(packet),
    requestKeyframe() {
      capture.asked += 1;
      keyframeIn ||= 2;
    },
    onResumed: () => {
      out.resumed += 1;
    },
    originUs: () => 500,
    now: () => capture.nowUs + 500,
  });
  let picture = 0;
  let sound = 0;
  const sendPicture = () => {
    const timestampUs = picture * pictureUs;
    const isKeyframe = keyframeIn > 0 ? --keyframeIn === 0 : picture === 0;
    picture += 1;
    pauses.addVideo({
      type: 'video', branch: 0, timestampUs, capturedUs: timestampUs,
      durationUs: pictureUs, isKeyframe,
    });
  };
  const sendSound = () => {
    const first = sound * framesPerBuffer;
    pauses.addAudio({
      type: 'audio', timestampUs: sound * soundUs, durationUs: soundUs,
      sampleRate: rate, channels: 1, frames: framesPerBuffer, peak: 1,
      samples: Int16Array.from({ length: framesPerBuffer },
        (_, i) => mark(first + i)),
    });
    sound += 1;
  };
  capture.run = (untilUs) => {
    for (; capture.nowUs < untilUs; capture.nowUs += 1_000) {
      if (picture * pictureUs + 50_000 <= capture.nowUs) sendPicture();
      if (sound * soundUs + 110_000 <= capture.nowUs) sendSound();
    }
  };
  return Object.assign(capture, { pauses });
}

describe('ten pauses of any length', () => {
  const { pauses, out, run } = fakeCapture();
  const spans = [];
  let nowUs = 0;
  for (let i = 0; i < 10; i += 1) {
    nowUs += 600_000 + i * 37_100;
    run(nowUs);
    const fromUs = nowUs;
    pauses.pause();
    nowUs += 3_000 + i * i * 21_700;
    run(nowUs);
    pauses.resume();
    spans.push([fromUs, nowUs]);
  }
  run(nowUs + 900_000);
  pauses.pause();
  run(nowUs + 1_300_000);

  test('leave nothing of themselves in what is delivered', () => {
    assert.equal(out.resumed, 10);
    for (const { capturedUs } of out.video) {
      // A pause begins half a picture late at most.
      assert.ok(!spans.some(([from, to]) =>
        capturedUs >= from + pictureUs / 2 && capturedUs < to), capturedUs);
    }
  });

  test('leave no gap between pictures, and go on with a keyframe', () => {
    out.video.slice(1).forEach((packet, i) => {
      const before = out.video[i];
      const step = packet.timestampUs - before.timestampUs;
      assert.ok(step >= pictureUs / 2 - 1 && step <= pictureUs * 1.5 + 1_000,
        `${step} us`);
      if (packet.capturedUs - before.capturedUs > pictureUs * 1.5) {
        assert.equal(packet.isKeyframe, true);
      }
    });
  });

  test('leave no gap in the sound', () => {
    out.audio.slice(1).forEach((packet, i) => {
      const { timestampUs, durationUs } = out.audio[i];
      const gap = packet.timestampUs - timestampUs - durationUs;
      assert.ok(Math.abs(gap) <= 45, `${gap} us`);
    });
    for (const { frames, samples } of out.audio) {
      assert.equal(frames, samples.length);
    }
  });

  test('move sound by as much as the picture of the same instant', () => {
    const places = new Map();
    for (const { timestampUs, samples } of out.audio) {
      samples.forEach((sample, i) => {
        places.set(sample, [...places.get(sample) ?? [],
          timestampUs + i / rate * 1e6]);
      });
    }
    let compared = 0;
    for (const { capturedUs, timestampUs } of out.video) {
      const heard = places.get(mark(Math.round(capturedUs / 1e6 * rate)));
      if (heard === undefined) continue;
      compared += 1;
      const apart = Math.min(
        ...heard.map((placeUs) => Math.abs(placeUs - timestampUs)));
      assert.ok(apart < 100, `${apart} us apart`);
    }
    assert.ok(compared > out.video.length * 0.9, `${compared} compared`);
  });
});

describe('a pause', () => {
  test('that begins again before a picture came is one pause', () => {
    const { pauses, out, run } = fakeCapture();
    run(300_000);
    assert.equal(pauses.pause(), true);
    assert.equal(pauses.pause(), false);
    run(600_000);
    assert.equal(pauses.resume(), true);
    assert.equal(pauses.resume(), false);
    const count = out.video.length;
    pauses.pause();
    assert.equal(pauses.isPaused, true);
    run(1_200_000);
    assert.equal(out.video.length, count);
    pauses.resume();
    run(1_600_000);
    assert.equal(out.resumed, 1);
    assert.ok(out.video.length > count);
    assert.ok(pauses.cutUs > 900_000 && pauses.cutUs < 1_100_000,
      `${pauses.cutUs} us`);
  });

  test('whose keyframe showed the pause asks for another', () => {
    const capture = fakeCapture();
    capture.run(300_000);
    capture.pauses.pause();
    capture.run(310_000);
    capture.pauses.resume();
    capture.run(1_500_000);
    assert.ok(capture.asked >= 2, `${capture.asked} asked`);
    assert.equal(capture.out.resumed, 1);
  });

  test('behind a picture of a slow branch leaves times of whole microseconds',
    () => {
      const { pauses, out } = fakeCapture();
      const add = (timestampUs) => pauses.addVideo({ type: 'video', branch: 0,
        timestampUs, durationUs: 142_857, isKeyframe: true });
      add(0);
      pauses.pause();
      pauses.resume();
      add(142_857);
      assert.equal(out.video.length, 2);
      assert.ok(Number.isInteger(out.video[1].timestampUs),
        `${out.video[1].timestampUs} us`);
    });

  test('of a source that sends no picture does not collect its sound', () => {
    const { pauses, out } = fakeCapture();
    pauses.pause();
    pauses.resume();
    for (let i = 0; i < 1_000; i += 1) {
      pauses.addAudio({
        type: 'audio', timestampUs: i * soundUs, durationUs: soundUs,
        sampleRate: rate, channels: 1, frames: framesPerBuffer, peak: 0,
        samples: new Int16Array(framesPerBuffer),
      });
    }
    pauses.addVideo({ type: 'video', branch: 0, timestampUs: 20_000_000,
      durationUs: pictureUs, isKeyframe: true });
    assert.deepEqual(out.audio, []);
    assert.equal(out.video[0].timestampUs, 0);
  });
});

describe('a session', () => {
  useDisplay();

  test('pauses all branches and goes on with keyframes', async () => {
    const capture = await startCapture({
      source: { type: 'monitor' },
      video: { width: 320, fps: 20, branches: [{ width: 160, fps: 10 }] },
    });
    const told = [];
    for (const name of ['paused', 'resumed']) {
      capture.events.on(name, () => told.push(name));
    }
    try {
      const packets = [[], []];
      const readers = packets.map(async (list, branch) => {
        for await (const packet of capture.video({ branch })) list.push(packet);
      });
      await sleep(1_000);
      capture.pause();
      capture.pause();
      assert.equal(capture.isPaused, true);
      // What shows the time before may still be under way.
      await sleep(1_000);
      const counts = packets.map((list) => list.length);
      await sleep(1_000);
      assert.deepEqual(packets.map((list) => list.length), counts);
      capture.resume();
      assert.equal(capture.isPaused, false);
      await sleep(1_500);
      const { sync } = capture.stats();
      assert.ok(sync.pausedUs > 1_900_000, `${sync.pausedUs} us`);
      // Its own end is no fault of a pause.
      capture.pause();
      await capture.stop();
      await Promise.all(readers);
      assert.deepEqual(told, ['paused', 'resumed', 'paused']);
      packets.forEach((list, branch) => {
        assert.ok(list.length > counts[branch] + 3, `branch ${branch}`);
        assert.equal(list[counts[branch]].isKeyframe, true);
        const steps = list.slice(1).map((packet, i) =>
          packet.timestampUs - list[i].timestampUs);
        assert.ok(Math.min(...steps) > 0);
        assert.ok(steps[counts[branch] - 1] < 900_000,
          `${steps[counts[branch] - 1]} us between before and after`);
      });
      assert.throws(() => capture.pause(), { code: 'ERR_CAPTURE_STOPPED' });
      assert.throws(() => capture.resume(), { code: 'ERR_CAPTURE_STOPPED' });
    } finally {
      await capture.stop();
    }
  });
});
