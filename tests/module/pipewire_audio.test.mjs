import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { audioObject, portalRequest, withAudio } from
  '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { leftChannel, usualAmplitudeOf } from '../support/spectrum.mjs';
import { until } from '../support/until.mjs';

const lowHertz = 440;
const highHertz = 1_000;
const otherHertz = 700;

let screen;
let holder;
let low;
let high;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, { width: 160, height: 90, fps: 10 });
    holder = await startHolder(started);
    low = await startPlayer(started, { name: 'low', hertz: lowHertz });
    high = await startPlayer(started,
      { name: 'high', hertz: highHertz, amplitude: 0.5 });
    return [screen, holder, low, high];
  },
});

function request(mode, targets) {
  return withAudio(portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    width: 160,
    height: 90,
    fps: 10,
    bitrate: 300_000,
  }), mode, targets);
}

/** Captures until `isEnough` and returns what arrived with the statistics. */
async function captureAudio(mode, targets,
  isEnough = ({ audio }) => audio.length >= 100) {
  const collected = collect();
  addon.captureSetup(request(mode, targets));
  await until(() => isEnough(collected), 'enough sound', 20_000);
  collected.stats = addon.getStats();
  addon.stopCapture();
  return collected;
}

const pitches = (packets) => {
  const samples = leftChannel(packets);
  return {
    low: usualAmplitudeOf(samples, lowHertz),
    high: usualAmplitudeOf(samples, highHertz),
    other: usualAmplitudeOf(samples, otherHertz),
  };
};

const isNear = (value, expected) =>
  assert.ok(Math.abs(value - expected) < 0.03, `${value}, not ${expected}`);

/** What one buffer's metering says, worked out from its samples. */
function meter(samples) {
  const sizes = Array.from(samples, Math.abs);
  return {
    nonZeroSamples: sizes.filter((size) => size !== 0).length,
    absoluteSampleSum: sizes.reduce((sum, size) => sum + size, 0),
    peakAbsoluteSample: Math.max(0, ...sizes),
    clippedSamples: sizes.filter((size) => size >= 32_760).length,
  };
}

describe('two applications', () => {
  let captured;
  before(async () => {
    captured = await captureAudio('process', [low.serial, high.serial]);
  });

  test('are both in the mix, at their own loudness', () => {
    const { low: first, high: second, other } = pitches(
      captured.audio.slice(40));
    isNear(first, 0.25);
    isNear(second, 0.5);
    assert.ok(other < 0.005, `${other} where nothing plays`);
  });

  test('are metered apart', () => {
    const [first, second] = captured.stats.audioSourceStats;
    isNear(first.peakAbsoluteSample / 32_768, 0.25);
    isNear(second.peakAbsoluteSample / 32_768, 0.5);
    // The mean of a sine's magnitude is 2 / pi of its peak.
    const mean = ({ lastAbsoluteSampleSum, samplesCaptured, packetsCaptured }) =>
      lastAbsoluteSampleSum / (samplesCaptured / packetsCaptured) / 32_768;
    isNear(mean(first), 0.25 * 2 / Math.PI);
    isNear(mean(second), 0.5 * 2 / Math.PI);
    for (const [index, source] of [first, second].entries()) {
      assert.equal(source.sourceIndex, index);
      assert.equal(source.clippedSamplesCaptured, 0);
      assert.match(source.caps, /^audio\/x-raw.*rate=\(int\)48000/);
    }
    assert.deepEqual(
      captured.stats.audioSourceStats
        .map(({ pipeWireTargetObject }) => pipeWireTargetObject),
      [low.serial, high.serial]);
  });

  test('packets have every field, worked out from their samples', () => {
    for (const packet of captured.audio) {
      const { samples, timestampUs, rawPtsUs, rawDtsUs, durationUs,
        enqueuedAtMs, ...rest } = packet;
      assert.ok(samples instanceof Int16Array);
      assert.deepEqual(rest, {
        type: 'pcm',
        channels: 2,
        sampleRate: 48_000,
        sampleCount: samples.length,
        ...meter(samples),
      });
      for (const value of [timestampUs, rawPtsUs, rawDtsUs, durationUs]) {
        assert.ok(Number.isSafeInteger(value) && value >= 0);
      }
      assert.ok(Math.abs(enqueuedAtMs - Date.now()) < 60_000);
      assert.equal(durationUs, Math.round(samples.length / 2 / 0.048));
    }
  });

  test('times follow each other without a gap, on the session clock', () => {
    const { audio, stats } = captured;
    for (let i = 1; i < audio.length; i += 1) {
      const step = audio[i].timestampUs - audio[i - 1].timestampUs;
      assert.ok(Math.abs(step - audio[i - 1].durationUs) <= 2, `${step} us`);
    }
    const nowUs = Number(process.hrtime.bigint() / 1000n);
    assert.ok(stats.firstAudioTimestampUs > 0 && stats.firstAudioTimestampUs <
      nowUs - stats.sessionClockOriginUs);
    assert.equal(stats.firstAudioTimestampUs, audio[0].timestampUs);
  });

  test('the counters are the sums of the packets', () => {
    const { audio, stats } = captured;
    // Some may have been counted that had not arrived yet.
    const counted = audio.slice(0, stats.audioPacketsCaptured);
    const sum = (key) => counted.reduce((total, packet) =>
      total + packet[key], 0);
    assert.equal(stats.audioPacketsCaptured, stats.audioBridgeQueuedPackets);
    assert.equal(stats.audioBridgeDroppedPackets, 0);
    assert.ok(stats.audioPacketsCaptured >= counted.length);
    if (counted.length === stats.audioPacketsCaptured) {
      assert.equal(stats.audioSamplesCaptured, sum('sampleCount'));
      assert.equal(stats.audioNonZeroSamplesCaptured, sum('nonZeroSamples'));
      assert.equal(stats.audioAbsoluteSampleSum, sum('absoluteSampleSum'));
      assert.equal(stats.audioClippedSamplesCaptured, sum('clippedSamples'));
    }
    assert.ok(stats.audioPeakAbsoluteSample >=
      Math.max(...counted.map(({ peakAbsoluteSample }) => peakAbsoluteSample)));
    assert.match(stats.audioCaps, /^audio\/x-raw/);
    assert.equal(stats.gstBusErrors, 0);
  });
});

for (const mode of ['system', 'auto']) {
  test(`the mix of the whole system, asked for as "${mode}"`, async () => {
    const { audio } = await captureAudio(mode, [session.sink.serial]);
    const { low: first, high: second, other } = pitches(audio.slice(40));
    isNear(first, 0.25);
    isNear(second, 0.5);
    assert.ok(other < 0.005);
  });
}

test('one application alone is in the packets alone', async () => {
  const { audio } = await captureAudio('process', [high.serial]);
  const { low: first, high: second } = pitches(audio.slice(40));
  assert.ok(first < 0.005, `${first} of the other application`);
  isNear(second, 0.5);
});

test('silence is counted as silence, then a sound ends it', async () => {
  const rate = 48_000;
  const quiet = await startPlayer(session, {
    name: 'quiet',
    sampleAt: (frame) => Math.floor(frame / rate) % 2 === 0
      ? 0 : 0.1 * Math.sin(2 * Math.PI * lowHertz * frame / rate),
  });
  try {
    const hasBoth = ({ audio }) => {
      const firstSound = audio.findIndex((packet, index) =>
        index > 60 && packet.nonZeroSamples > 0);
      return firstSound !== -1 && audio.slice(firstSound)
        .some(({ nonZeroSamples }) => nonZeroSamples === 0);
    };
    const { audio, stats } = await captureAudio('process', [quiet.serial],
      hasBoth);
    assert.ok(stats.audioSilentPackets >= 1);
    assert.ok(stats.audioMaxConsecutiveSilentPackets >= 50,
      `${stats.audioMaxConsecutiveSilentPackets} in a row`);
    assert.ok(stats.audioConsecutiveSilentPackets <
      stats.audioMaxConsecutiveSilentPackets);
    const silent = audio.find(({ nonZeroSamples }) => nonZeroSamples === 0);
    assert.deepEqual(
      [silent.absoluteSampleSum, silent.peakAbsoluteSample], [0, 0]);
    const [source] = stats.audioSourceStats;
    assert.ok(source.maxConsecutiveSilentPackets >= 1);
    assert.ok(source.silentPackets < source.packetsCaptured);
  } finally {
    await quiet.stop();
  }
});

test('a sound at full scale is counted as clipped', async () => {
  const loud = await startPlayer(session, {
    name: 'loud', sampleAt: (frame) => Math.floor(frame / 48) % 2 ? 1 : -1,
  });
  try {
    const { audio, stats } = await captureAudio('process', [loud.serial]);
    assert.ok(stats.audioClippedSamplesCaptured > 0);
    assert.ok(stats.audioPeakAbsoluteSample >= 32_760);
    assert.ok(stats.audioSourceStats[0].clippedSamplesCaptured > 0);
    assert.ok(audio.some(({ clippedSamples, sampleCount }) =>
      clippedSamples > 0.9 * sampleCount));
  } finally {
    await loud.stop();
  }
});

test('a full queue drops packets and counts them', async () => {
  const collected = collect();
  addon.captureSetup(request('process', [low.serial]));
  await until(() => collected.audio.length > 10, 'sound');
  // The queue holds 256 packets, 2.6 seconds of 10 ms each.
  const deadline = performance.now() + 8_000;
  while (addon.getStats().audioBridgeDroppedPackets === 0 &&
      performance.now() < deadline);
  const { audioBridgeDroppedPackets: dropped } = addon.getStats();
  assert.ok(dropped > 0, 'nothing was dropped');
  const before = collected.audio.length;
  await until(() => collected.audio.length > before + 250, 'the queue to run');
  addon.stopCapture();
});

test('an object of the wrong kind is refused before anything starts', () => {
  assert.throws(() => addon.captureSetup({
    ...request('process', []),
    linuxAudio: audioObject([], 'process'),
  }), { message: 'requested Linux audio is unavailable: no PipeWire target ' +
    'objects were provided' });
  assert.equal(addon.isCapturing(), false);
});
