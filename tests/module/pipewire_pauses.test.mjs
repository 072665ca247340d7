import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { amplitudeOf, leftChannel } from '../support/spectrum.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const hertz = 1_000;
const size = { width: 160, height: 90 };
let screen;
let application;
let holder;
usePipeWire({
  withSink: true,
  async prepare(session) {
    screen = await startVideo(session, size);
    application = await startVideo(session, {
      name: 'application', width: 64, height: 36, fps: 1, toneHertz: hertz,
    });
    application.serial = await until(async () =>
      (await readObjects(session)).nodeNamed('application-click')?.serial,
    'the application to play');
    holder = await startHolder(session);
    return [screen, application, holder];
  },
});
after(() => addon.stopCapture());

const start = () => {
  const collected = collect();
  addon.captureSetup(withAudio(portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    ...size,
    temporalLayerCount: 1,
  }), 'process', [application.serial]));
  return collected;
};

/** Whether the tone is in the last packets of sound. */
const isHeard = ({ audio }) => audio.length > 20 &&
  amplitudeOf(leftChannel(audio.slice(-10)), hertz) > 0.1;
const isSilent = ({ audio }) =>
  leftChannel(audio.slice(-10)).every((sample) => sample === 0);

const command = async (producer, name, pattern) => {
  producer.command(name);
  await producer.waitFor(pattern, `the producer to ${name}`);
};

for (const longMs of [300, 3_000]) {
  test(`an application that pauses for ${longMs} ms is heard again`,
    async () => {
      const collected = start();
      await until(() => isHeard(collected), 'the tone');
      const { length } = collected.packets;
      application.command('pause');
      await until(() => isSilent(collected), 'silence');
      const paused = performance.now();
      await until(() => performance.now() - paused > longMs, 'the pause');
      application.command('resume');
      await until(() => isHeard(collected), 'the tone again', 5_000);
      // Nothing else was touched.
      assert.ok(collected.packets.length > length);
      addon.stopCapture();
      await until(() => collected.events.length > 1, 'the end');
      assert.deepEqual(collected.events.map(({ state }) => state),
        ['ready', 'stopped']);
      for (let i = 1; i < collected.audio.length; i += 1) {
        assert.ok(collected.audio[i].timestampUs >
          collected.audio[i - 1].timestampUs);
      }
    });
}

// A busy machine may be late now and then, but not each time.
test('sound and pictures are back within a second', async () => {
  const { audio, packets } = start();
  await until(() => packets.length > 20 &&
    audio.some(({ nonZeroSamples }) => nonZeroSamples > 0), 'both');
  const took = { sound: [], pictures: [] };
  for (let round = 0; round < 5; round += 1) {
    await command(screen, 'pause', /^paused$/m);
    await command(application, 'pause', /^paused$/m);
    await until(() => isSilent({ audio }), 'silence');
    const [heard, seen] = [audio.length, packets.length];
    const begin = performance.now();
    screen.command('resume');
    application.command('resume');
    const back = {
      sound: () => audio.slice(heard)
        .some(({ nonZeroSamples }) => nonZeroSamples > 0),
      // A still screen gives one picture a second.
      pictures: () => packets.length > seen + 4,
    };
    await Promise.all(Object.keys(back).map(async (kind) => {
      await until(back[kind], `${kind} again`);
      took[kind].push(performance.now() - begin);
    }));
  }
  addon.stopCapture();
  assert.ok(Math.min(...took.sound) < 1_000, took.sound.join(' '));
  assert.ok(Math.min(...took.pictures) < 1_000, took.pictures.join(' '));
});

test('a producer of pictures that pauses is seen again', async () => {
  const collected = start();
  await until(() => collected.packets.length > 30, 'pictures');
  await command(screen, 'pause', /^paused$/m);
  const paused = performance.now();
  await until(() => performance.now() - paused > 2_000, 'the pause');
  const { length } = collected.packets;
  await command(screen, 'resume', /^resumed$/m);
  await until(() => collected.packets.length > length + 40, 'pictures again',
    10_000);
  addon.stopCapture();
  const numbers = (await decodeFlawlessly(collected.packets)).map(readNumber);
  // They are new ones, not the last one again and again.
  assert.ok(new Set(numbers.slice(length)).size > 20,
    numbers.slice(length).join(' '));
  assert.deepEqual(collected.events.map(({ state }) => state).slice(0, 1),
    ['ready']);
});
