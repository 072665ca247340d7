import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import { after, before, describe, test } from 'node:test';
import { startCapture, listTargets } from 'linux-capture-addon/session';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { addon } from '../support/addon.mjs';
import { amplitudeOf, leftChannel } from '../support/spectrum.mjs';
import { until } from '../support/until.mjs';

const lowHertz = 440;
const highHertz = 1_000;
const laterHertz = 700;
const audible = 0.02;

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
    high = await startPlayer(started, { name: 'high', hertz: highHertz });
    return [screen, holder, low, high];
  },
});

const start = (audio) => startCapture({
  source: {
    type: 'pipewire',
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    nodeId: screen.node.id,
    width: 160,
    height: 90,
  },
  video: { fps: 10 },
  audio,
});

/** Reads sound until `isEnough` says so of the last half second. */
async function listen(capture, isEnough) {
  const recent = [];
  const deadline = performance.now() + 30_000;
  for await (const packet of capture.audio()) {
    recent.push(packet);
    while (packet.timestampUs - recent[0].timestampUs > 5e5) recent.shift();
    const samples = leftChannel(recent);
    const heard = new Set([lowHertz, highHertz, laterHertz]
      .filter((hertz) => amplitudeOf(samples, hertz) > audible));
    if (recent.length > 20 && isEnough(heard)) return { recent, heard };
    assert.ok(performance.now() < deadline,
      `heard only ${[...heard].join(', ')} Hz`);
  }
  throw new Error('the sound ended');
}

const hears = (...wanted) => (heard) =>
  heard.size === wanted.length && wanted.every((hertz) => heard.has(hertz));

test('what plays is listed with its process', async () => {
  const { applications, system, problems } =
    await listTargets({ only: 'pipewire' });
  assert.deepEqual(problems, []);
  assert.equal(system[0].name, session.sink.name);
  for (const player of [low, high]) {
    const found =
      applications.find(({ processId }) => processId === player.child.pid);
    assert.deepEqual(found.linuxAudio.pipeWireTargetObjects, [player.serial]);
  }
});

test('"system" is everything that is heard', async () => {
  const capture = await start('system');
  try {
    const { recent } = await listen(capture, hears(lowHertz, highHertz));
    for (const packet of recent) {
      assert.deepEqual(Object.keys(packet), [
        'type', 'timestampUs', 'durationUs', 'sampleRate', 'channels',
        'frames', 'peak', 'samples', 'isAfterGap',
      ]);
      assert.equal(packet.sampleRate, 48_000);
      assert.equal(packet.channels, 2);
      assert.equal(packet.samples.length, packet.frames * 2);
    }
    const { audio } = capture.stats();
    assert.equal(audio.mode, 'system');
    assert.deepEqual(
      audio.sources.map(({ targetObject, nodeName }) =>
        [targetObject, nodeName]),
      [[session.sink.serial, session.sink.name]]);
    assert.ok(audio.peak > audible && audio.packets > 0);
    await assert.rejects(capture.setAudioTargets({ processId: 1 }),
      { code: 'ERR_CAPTURE_UNSUPPORTED' });
  } finally {
    await capture.stop();
  }
});

test('the sound of one process is that alone', async () => {
  const capture = await start({ processId: low.child.pid });
  try {
    await listen(capture, hears(lowHertz));
    const { sources } = capture.stats().audio;
    assert.deepEqual(sources.map(({ targetObject }) => targetObject),
      [low.serial]);
    const [{ lastPeak, peak, magnitudeSum, samples }] = sources;
    assert.ok(lastPeak > audible && lastPeak <= peak);
    // The mean magnitude of a tone lies below its peak.
    assert.ok(magnitudeSum > 0 && magnitudeSum < peak * samples);
  } finally {
    await capture.stop();
  }
});

test('setAudioTargets changes the process', async () => {
  const capture = await start({ processId: low.child.pid });
  const targets = [];
  capture.events.on('targets', (found) => targets.push(found));
  try {
    await listen(capture, hears(lowHertz));
    await capture.setAudioTargets({ processId: high.child.pid });
    await listen(capture, hears(highHertz));
    assert.deepEqual(
      targets.map(({ pipeWireTargetObjects }) => pipeWireTargetObjects),
      [[high.serial]]);
    await assert.rejects(capture.setAudioTargets({ processId: 2 ** 30 }),
      { code: 'ERR_CAPTURE_NOT_FOUND' });
    await listen(capture, hears(highHertz));
  } finally {
    await capture.stop();
  }
});

describe('an application that opens another stream', () => {
  let later;
  after(() => later?.stop());

  test('is followed', async () => {
    const [{ processBinary }] = (await listTargets()).applications;
    const capture = await start({ processBinary });
    const changes = [];
    capture.events.on('targets', (found) => changes.push(found));
    try {
      await listen(capture, hears(lowHertz, highHertz));
      later = await startPlayer(session, { name: 'later', hertz: laterHertz });
      await listen(capture, hears(lowHertz, highHertz, laterHertz));
      assert.ok(
        changes.at(-1).pipeWireTargetObjects.includes(later.serial));
    } finally {
      await capture.stop();
    }
  });
});

describe('the program that listens for an application', () => {
  /** The numbers of the running ones that this process has started. */
  const listeners = () => readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name))
    .filter((pid) => {
      try {
        const status = readFileSync(`/proc/${pid}/status`, 'utf8');
        return status.includes(`\nPPid:\t${process.pid}\n`) &&
          !/^State:\s+Z/m.test(status) &&
          readFileSync(`/proc/${pid}/cmdline`, 'utf8')
            .includes('linux-capture-targets\0--follow');
      } catch {
        return false;
      }
    }).map(Number);

  test('is one as long as the capture runs', async () => {
    const capture = await start({ processId: low.child.pid });
    try {
      const [pid] = await until(
        () => listeners().length === 1 && listeners(), 'the listener');
      const more = await startPlayer(session, {
        name: 'more', hertz: laterHertz,
        properties: `application.process.id=${low.child.pid}`,
      });
      await listen(capture, hears(lowHertz, laterHertz));
      assert.deepEqual(listeners(), [pid]);
      await more.stop();
    } finally {
      await capture.stop();
    }
    await until(() => listeners().length === 0, 'the listener to end');
  });

  test('is started again when it dies, and that is told', async () => {
    const capture = await start({ processId: low.child.pid });
    const errors = [];
    capture.events.on('error', (error) => errors.push(error));
    try {
      const [pid] = await until(
        () => listeners().length === 1 && listeners(), 'the listener');
      process.kill(pid, 'SIGKILL');
      await until(() => errors.length > 0, 'the error');
      assert.deepEqual(
        errors.map(({ code, isFatal, message }) => [code, isFatal, message]),
        [['ERR_CAPTURE_AUDIO', false,
          'linux-capture-targets ended with SIGKILL']]);
      const again = await startPlayer(session, {
        name: 'again', hertz: laterHertz,
        properties: `application.process.id=${low.child.pid}`,
      });
      // Before the sound is looked at, which on a busy machine leaves the event
      // loop no time for anything else.
      await until(() => listeners().some((other) => other !== pid),
        'the next listener', 30_000);
      await listen(capture, hears(lowHertz, laterHertz));
      assert.equal(listeners().length, 1);
      await again.stop();
    } finally {
      await capture.stop();
    }
  });

  test('is not there where nothing is to be followed', async () => {
    const capture = await start({ processId: low.child.pid, follow: false });
    try {
      await listen(capture, hears(lowHertz));
      assert.deepEqual(listeners(), []);
    } finally {
      await capture.stop();
    }
  });
});

test('an application without sound is told', async () => {
  await assert.rejects(start({ application: 'no such program' }), {
    code: 'ERR_CAPTURE_NOT_FOUND',
    message: new RegExp('^there is no application "no such program" with ' +
      'sound; there are "[^"]+" \\(process \\d+\\), '),
  });
  assert.equal(addon.isCapturing(), false);
});

describe('a slow reader of sound', () => {
  let capture;
  before(async () => {
    capture = await start('system');
  });
  after(() => capture?.stop());

  test('loses the oldest', async () => {
    const reader = capture.audio({ maxQueue: 5 });
    const first = (await reader.next()).value;
    // What came before the reader was dropped as well.
    const { dropped } = capture.stats().audio.reader;
    await until(() => capture.stats().audio.reader.dropped >= dropped + 20,
      'sound to be dropped');
    const second = (await reader.next()).value;
    const third = (await reader.next()).value;
    assert.equal(second.isAfterGap, true);
    assert.ok(second.timestampUs > first.timestampUs + 15 * first.durationUs);
    assert.equal(third.isAfterGap, false);
    await reader.return();
  });
});
