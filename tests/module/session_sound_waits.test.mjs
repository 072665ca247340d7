import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { listTargets, startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { amplitudeOf, leftChannel } from '../support/spectrum.mjs';
import { until } from '../support/until.mjs';

const hertz = 1_000;
const otherHertz = 440;
const size = { width: 160, height: 90 };
let screen;
let holder;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, { ...size, fps: 10 });
    holder = await startHolder(started);
    return [screen, holder];
  },
});

/** An application with a tone, which can pause. */
async function startApplication({ isPaused = false } = {}) {
  const application = await startVideo(session, {
    name: 'application', width: 64, height: 36, fps: 1, toneHertz: hertz,
  });
  application.stream = await until(async () => {
    const node = (await readObjects(session)).nodeNamed('application-click');
    return node?.state === 'running' && node;
  }, 'the application to play');
  if (isPaused) await pause(application);
  return application;
}

async function pause(application) {
  application.command('pause');
  await until(async () => (await readObjects(session))
    .nodeNamed('application-click').state !== 'running', 'the pause');
}

const start = (audio) => startCapture({
  source: {
    type: 'pipewire',
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    nodeId: screen.node.id,
    ...size,
  },
  video: { fps: 10 },
  audio,
});

/** Keeps the last half second of sound; its times have to go up. */
function listen(capture) {
  const heard = { recent: [], errors: [] };
  capture.events.on('error', ({ message }) => heard.errors.push(message));
  (async () => {
    for await (const packet of capture.audio()) {
      const last = heard.recent.at(-1);
      if (last !== undefined && packet.timestampUs <= last.timestampUs) {
        heard.errors.push(`${packet.timestampUs} after ${last.timestampUs}`);
      }
      heard.recent.push(packet);
      while (packet.timestampUs - heard.recent[0].timestampUs > 5e5) {
        heard.recent.shift();
      }
    }
  })();
  const has = (wanted) => heard.recent.length > 20 &&
    amplitudeOf(leftChannel(heard.recent.slice(-15)), wanted) > 0.02;
  heard.tone = (wanted = hertz) => until(() => has(wanted), `${wanted} Hz`);
  heard.silence = () => until(() => heard.recent.length > 20 &&
    leftChannel(heard.recent.slice(-15)).every((sample) => sample === 0),
  'silence');
  return heard;
}

describe('an application that is paused when the capture starts', () => {
  test('is listed as paused', async () => {
    const application = await startApplication();
    const paused = async () => (await listTargets({ only: 'pipewire' }))
      .applications.map(({ processBinary, pausedTargetObjects }) =>
        [processBinary, pausedTargetObjects]);
    try {
      assert.deepEqual(await paused(), [['producer', []]]);
      await pause(application);
      assert.deepEqual(await paused(),
        [['producer', [application.stream.serial]]]);
    } finally {
      await application.stop();
    }
  });

  for (const follow of [true, false]) {
    test(`is heard when it plays${follow ? '' : ', also unfollowed'}`,
      async () => {
        const application = await startApplication({ isPaused: true });
        const capture = await start({ processBinary: 'producer', follow });
        const heard = listen(capture);
        try {
          assert.equal(capture.hasAudio, true);
          await heard.silence();
          assert.deepEqual(capture.stats().audio.sources, []);
          assert.equal(capture.stats().audio.mode, 'process');
          application.command('resume');
          await heard.tone();
          const [{ targetObject, kind }] = capture.stats().audio.sources;
          assert.deepEqual([targetObject, kind],
            [application.stream.serial, 'application']);
          // In the middle too, which nothing has to be bound anew for.
          await pause(application);
          await heard.silence();
          application.command('resume');
          await heard.tone();
          assert.deepEqual(heard.errors, []);
        } finally {
          await capture.stop();
          await application.stop();
        }
      });
  }

  test('does not hold up another one of the same name', async () => {
    const application = await startApplication({ isPaused: true });
    const player = await startPlayer(session, {
      name: 'player', hertz: otherHertz,
      properties: 'application.process.binary=producer',
    });
    const capture = await start({ processBinary: 'producer' });
    const heard = listen(capture);
    try {
      await heard.tone(otherHertz);
      application.command('resume');
      await heard.tone();
      await heard.tone(otherHertz);
      assert.deepEqual(heard.errors, []);
    } finally {
      await capture.stop();
      await player.stop();
      await application.stop();
    }
  });
});

test('an application that ends and comes back is heard again', async () => {
  const first = await startApplication();
  const capture = await start({ processBinary: 'producer' });
  const heard = listen(capture);
  let second;
  try {
    await heard.tone();
    await first.kill();
    await heard.silence();
    second = await startApplication({ isPaused: true });
    await heard.silence();
    second.command('resume');
    await heard.tone();
    assert.deepEqual(heard.errors, []);
  } finally {
    await capture.stop();
    await first.stop();
    await second?.stop();
  }
});

test('a change to a paused application is silent until it plays', async () => {
  const application = await startApplication({ isPaused: true });
  const player = await startPlayer(session,
    { name: 'player', hertz: otherHertz });
  const capture = await start({ processId: player.child.pid });
  const heard = listen(capture);
  try {
    await heard.tone(otherHertz);
    await capture.setAudioTargets({ processBinary: 'producer' });
    await heard.silence();
    application.command('resume');
    await heard.tone();
  } finally {
    await capture.stop();
    await player.stop();
    await application.stop();
  }
});

test('a change that fails leaves sound that can be changed again', async () => {
  const player = await startPlayer(session,
    { name: 'player', hertz: otherHertz });
  const capture = await start({ processId: player.child.pid });
  const heard = listen(capture);
  try {
    await heard.tone(otherHertz);
    await assert.rejects(capture.setAudioTargets({ linuxAudio: {
      mode: 'process', pipeWireTargetObjects: [2 ** 30],
    } }), { nativeCode: 'target-missing' });
    // What was followed before is followed again.
    await heard.tone(otherHertz);
  } finally {
    await capture.stop();
    await player.stop();
  }
});
