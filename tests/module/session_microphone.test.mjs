import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { listTargets, startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { colourAt } from '../support/picture.mjs';
import { addInput, addSink, feedInput, removeSink, setDefault } from
  '../support/pipewire.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { clickDelays } from '../support/recorded_clicks.mjs';
import { amplitudeOf, leftChannel } from '../support/spectrum.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const hertz = { system: 440, voice: 700, other: 1_000, elsewhere: 1_400 };
const size = { width: 160, height: 90 };
let screen;
let holder;
let input;
let otherInput;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, { ...size, fps: 60, clickEvery: 1 });
    holder = await startHolder(started);
    input = await addInput(started, 'desk', 'A desk microphone');
    otherInput = await addInput(started, 'headset');
    return [screen, holder];
  },
});

const start = (audio, video = { fps: 10 }) => startCapture({
  source: {
    type: 'pipewire',
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    nodeId: screen.node.id,
    ...size,
  },
  video,
  audio,
});

/** Plays a tone into an input, as a voice would. */
const speak = (into, name, amplitude) => startPlayer(session,
  { name, hertz: hertz[name], amplitude, input: into.name });

/** Waits until exactly these tones are in the last quarter of a second. */
async function hears(capture, ...wanted) {
  const recent = [];
  const isHeard = (name) =>
    amplitudeOf(leftChannel(recent), hertz[name]) > 0.02;
  let told;
  const timer = performance.now();
  for await (const packet of capture.audio()) {
    recent.push(packet);
    while (packet.timestampUs - recent[0].timestampUs > 25e4) recent.shift();
    if (recent.length < 10) continue;
    told = Object.keys(hertz).filter(isHeard);
    if (told.join() === wanted.join()) return;
    assert.ok(performance.now() - timer < 20_000,
      `heard ${told.join(' and ')} instead of ${wanted.join(' and ')}`);
  }
}

test('without any input there is no microphone', async () => {
  await removeSink(session, input);
  await removeSink(session, otherInput);
  await assert.rejects(start({ system: true, microphone: true }), {
    code: 'ERR_CAPTURE_NOT_FOUND',
    message: 'there is no microphone; there is none at all',
  });
  assert.equal(addon.isCapturing(), false);
  input = await addInput(session, 'desk', 'A desk microphone');
  otherInput = await addInput(session, 'headset');
});

describe('a microphone', () => {
  let voice;
  let other;
  let system;
  before(async () => {
    system = await startPlayer(session,
      { name: 'system', hertz: hertz.system, amplitude: 0.4 });
    voice = await speak(input, 'voice', 0.2);
    other = await speak(otherInput, 'other', 0.2);
    await setDefault(session, 'source', input.name);
  });
  after(() => Promise.all(
    [system, voice, other].map((player) => player?.stop())));

  test('is listed by its name, and whether it is the default', async () => {
    const inputs = async () =>
      (await listTargets({ only: 'pipewire' })).inputs;
    await until(async () => (await inputs())[0].isDefault, 'the default');
    assert.deepEqual(await inputs(), [
      [input, 'A desk microphone', true], [otherInput, 'headset', false],
    ].map(([{ name, serial }, description, isDefault]) => ({
      linuxAudio: {
        mode: 'process',
        pipeWireTargetObjects: [serial],
        pipeWireAudioSources: [{
          pipeWireTargetObject: serial, nodeName: name, mediaName: description,
        }],
      },
      name,
      description,
      isDefault,
    })));
  });

  test('is recorded alone, by its description too', async () => {
    for (const [microphone, heard] of
      [[true, 'voice'], ['headset', 'other'], ['a DESK microphone', 'voice']]) {
      const capture = await start({ microphone });
      try {
        await hears(capture, heard);
        const { mode, sources } = capture.stats().audio;
        assert.equal(mode, 'process');
        assert.deepEqual(sources.map(({ kind }) => kind), ['microphone']);
      } finally {
        await capture.stop();
      }
    }
  });

  test('is mixed with the sound of the system, and metered apart', async () => {
    const capture = await start({ system: true, microphone: true });
    try {
      await hears(capture, 'system', 'voice');
      const { mode, sources } = capture.stats().audio;
      assert.equal(mode, 'system');
      assert.deepEqual(
        sources.map(({ kind, nodeName, mediaName, targetObject }) =>
          [kind, nodeName, mediaName, targetObject]), [
          ['system', session.sink.name, 'null1', session.sink.serial],
          ['microphone', 'desk', 'A desk microphone', input.serial],
        ]);
      const [loud, quiet] = sources.map(({ peak }) => peak);
      assert.ok(Math.abs(loud - 0.4) < 0.05 && Math.abs(quiet - 0.2) < 0.05,
        `${loud}, ${quiet}`);
    } finally {
      await capture.stop();
    }
  });

  test('is recorded beside one application', async () => {
    const capture =
      await start({ processId: system.child.pid, microphone: 'headset' });
    try {
      await hears(capture, 'system', 'other');
      await capture.setAudioTargets({ microphone: 'desk' });
      await hears(capture, 'voice');
      assert.deepEqual(
        capture.stats().audio.sources.map(({ kind }) => kind), ['microphone']);
    } finally {
      await capture.stop();
    }
  });

  test('is followed when another one becomes the default', async () => {
    const capture = await start({ system: true, microphone: true });
    const fixed = [];
    capture.events.on('error', ({ message }) => fixed.push(message));
    try {
      await hears(capture, 'system', 'voice');
      await setDefault(session, 'source', otherInput.name);
      await hears(capture, 'system', 'other');
      await setDefault(session, 'source', input.name);
      await hears(capture, 'system', 'voice');
      // The one that is used is taken away, and comes back.
      await voice.stop();
      await removeSink(session, input);
      await hears(capture, 'system', 'other');
      input = await addInput(session, 'desk', 'A desk microphone');
      voice = await speak(input, 'voice', 0.2);
      await hears(capture, 'system', 'voice');
      assert.deepEqual(fixed, []);
    } finally {
      await capture.stop();
    }
  });

  test('that is unknown is told with those that there are', async () => {
    await assert.rejects(start({ microphone: 'nowhere' }), {
      code: 'ERR_CAPTURE_NOT_FOUND',
      message: 'there is no microphone "nowhere"; there are ' +
        '"headset" ("headset"), "desk" ("A desk microphone")',
    });
  });
});

test('a voice is in step with the picture', async (context) => {
  await feedInput(session, { player: 'screen-click', input: input.name });
  const capture = await start({ microphone: 'desk' }, { fps: 30 });
  const pictures = [];
  const sound = [];
  const read = async (packets, list) => {
    for await (const packet of packets) list.push(packet);
  };
  const reading = [read(capture.video(), pictures),
    read(capture.audio(), sound)];
  await until(() => (pictures.at(-1)?.timestampUs ?? 0) > 8e6,
    'eight seconds', 30_000);
  await capture.stop();
  await Promise.all(reading);
  const isWhite = (await decodeFlawlessly(pictures.map((packet) =>
    ({ ...packet, payload: packet.data })))).map((picture) =>
    colourAt(picture, 1 / 32, 31 / 32).every((value) => value > 160));
  const flashes = pictures.filter((_, i) =>
    i > 0 && isWhite[i] && !isWhite[i - 1])
    .map(({ timestampUs }) => timestampUs / 1e6);
  const clicks = [];
  for (const { samples, timestampUs } of sound) {
    const first = samples.findIndex((sample) => Math.abs(sample) > 3_000);
    const at = timestampUs / 1e6 + (first >> 1) / 48_000;
    if (first >= 0 && at - (clicks.at(-1) ?? -1) > 0.5) clicks.push(at);
  }
  const delays = clickDelays(flashes, clicks).map((delay) => delay * 1e3);
  context.diagnostic(`clicks after flashes, ms: ${
    delays.map((ms) => ms.toFixed(1)).join(' ')}`);
  assert.ok(flashes.length >= 5, `${flashes.length} flashes`);
  // A busy machine loses a picture or a piece of sound now and then; what is
  // out of step is so with every flash.
  const far = delays.filter((ms) => Math.abs(ms) >= 40);
  assert.ok(far.length <= delays.length / 4, `${far} ms`);
});

test('the sound of the system follows the default output', async () => {
  const speaker = await addSink(session, 'speaker');
  const player = await startPlayer(session, {
    name: 'elsewhere', hertz: hertz.elsewhere, to: speaker,
  });
  const capture = await start('system');
  try {
    await setDefault(session, 'sink', session.sink.name);
    await hears(capture);
    await setDefault(session, 'sink', speaker.name);
    await hears(capture, 'elsewhere');
  } finally {
    await capture.stop();
    await player.stop();
  }
});
