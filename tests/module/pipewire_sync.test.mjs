import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { colourAt } from '../support/picture.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

// Two minutes by hand: LINUX_CAPTURE_SYNC_SECONDS=120.
const seconds = Number(process.env.LINUX_CAPTURE_SYNC_SECONDS ?? 8);
const size = { width: 160, height: 90 };
let screen;
let holder;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    // Twice the captured rate: a flash waits for the producer's next picture.
    screen = await startVideo(started, { ...size, fps: 60, clickEvery: 1 });
    holder = await startHolder(started);
    return [screen, holder];
  },
});

/** Session times of the first picture of every flash, in milliseconds. */
async function flashesOf(packets) {
  const pictures = await decodeFlawlessly(packets);
  const isWhite = pictures.map((picture) =>
    colourAt(picture, 1 / 32, 31 / 32).every((value) => value > 160));
  return packets.filter((_, i) => i > 0 && isWhite[i] && !isWhite[i - 1])
    .map(({ timestampUs }) => timestampUs / 1e3);
}

/** Session times at which sound begins after silence, in milliseconds. */
function clicksOf(packets) {
  const clicks = [];
  let lastLoudMs = Number.NEGATIVE_INFINITY;
  for (const { samples, timestampUs } of packets) {
    for (let i = 0; i < samples.length; i += 2) {
      if (Math.abs(samples[i]) < 3_000) continue;
      const ms = timestampUs / 1e3 + i / 2 / 48;
      if (ms - lastLoudMs > 100) clicks.push(ms);
      lastLoudMs = ms;
    }
  }
  return clicks;
}

/**
 * One look depends on which packet came last, of pictures every 33 ms and of
 * sound every 10: a second of looks gives the mean.
 */
async function meanDriftUs() {
  let sum = 0;
  const looks = 100;
  for (let look = 0; look < looks; look += 1) {
    sum += addon.getStats().audioVideoDriftUs;
    await sleep(10);
  }
  return sum / looks;
}

describe('a flash and a click of the same instant', () => {
  let flashes;
  let clicks;
  let stats;
  let driftFirst;
  let driftLast;

  before(async () => {
    const clicker = await until(async () =>
      (await readObjects(session)).nodeNamed('screen-click'), 'the clicker');
    const collected = collect();
    addon.captureSetup(withAudio(portalRequest({
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
      node: screen.node,
      ...size,
      fps: 30,
      temporalLayerCount: 1,
    }), 'process', [clicker.serial]));
    const runTo = (second) => until(
      () => (collected.packets.at(-1)?.timestampUs ?? 0) > second * 1e6,
      'the time to pass', seconds * 1e3 + 20_000);
    await runTo(1);
    driftFirst = await meanDriftUs();
    await runTo(seconds - 1);
    driftLast = await meanDriftUs();
    stats = addon.getStats();
    addon.stopCapture();
    flashes = await flashesOf(collected.packets);
    clicks = clicksOf(collected.audio);
  });

  /** For each flash, by how many milliseconds the nearest click is later. */
  const distancesOf = () => flashes.map((flash) => clicks
    .map((click) => click - flash)
    .reduce((best, distance) =>
      (Math.abs(distance) < Math.abs(best) ? distance : best), Infinity));

  test('arrive with times less than 40 ms apart', (t) => {
    const distances = distancesOf();
    t.diagnostic(`click after flash, ms: ${
      distances.map((ms) => ms.toFixed(1)).join(' ')}`);
    assert.ok(flashes.length >= seconds - 3, `${flashes.length} flashes`);
    // A busy machine loses a picture or a piece of sound now and then; what is
    // out of step is so with every flash.
    const far = distances.filter((distance) => Math.abs(distance) >= 40);
    assert.ok(far.length <= distances.length / 4, `${far} ms`);
  });

  test('do not drift apart', (t) => {
    t.diagnostic(`mean audioVideoDriftUs at first ${driftFirst}, at last ` +
      `${driftLast}; firstAudioVideoOffsetUs ${
        stats.firstAudioVideoOffsetUs}`);
    // What a busy machine brings late is late in these figures, so they are
    // only told. Drift would be in every distance from some moment on.
    const distances = distancesOf().map(Math.abs);
    const half = Math.floor(distances.length / 2);
    for (const part of [distances.slice(0, half), distances.slice(half)]) {
      assert.ok(Math.min(...part) < 25, `${part} ms`);
    }
  });
});
