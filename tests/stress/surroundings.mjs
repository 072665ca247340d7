import { addSink, startPipeWire } from '../support/pipewire.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { startPlayer, startVideo } from '../support/pipewire_sources.mjs';
import { startScene } from '../support/scene.mjs';
import { until } from '../support/until.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };

/** A stream of sound that lasts as long as its process, and its target. */
async function startClicks(session, name) {
  const video = await startVideo(session,
    { name, width: 64, height: 36, fps: 1, clickEvery: 1 });
  const node = await until(
    async () => (await readObjects(session)).nodeNamed(`${name}-click`),
    `the clicks of ${name}`, 20_000);
  return { video, serial: node.serial };
}

/**
 * Starts everything that a capture under stress can capture: a screen with a
 * moving scene, a screen cast, two applications with sound. They run outside
 * of the process under test, so that a sanitizer sees that one alone.
 */
export async function startSurroundings() {
  const stops = [];
  const started = async (promise, stop = (helper) => helper.stop()) => {
    const helper = await promise;
    stops.unshift(() => stop(helper));
    return helper;
  };
  const stop = async () => {
    for (const each of stops.splice(0)) await each();
  };
  try {
    const xvfb = await started(startXvfb(size));
    await started(startScene({ ...size, display: xvfb.display, fps: 60 }));
    const session = await started(startPipeWire());
    const sink = await addSink(session);
    const screen = await started(startVideo(session,
      { name: 'screen', ...size, fps: 60 }));
    const clicks = [];
    for (const name of ['first', 'second']) {
      clicks.push(await started(startClicks(session, name),
        ({ video }) => video.stop()));
    }
    return {
      session,
      environment: { ...session.environment, DISPLAY: xvfb.display },
      sources: {
        ...size,
        socket: session.socket,
        screenNode: screen.node.id,
        sinkSerial: sink.serial,
        audioTargets: clicks.map(({ serial }) => serial),
      },
      stop,
    };
  } catch (error) {
    await stop();
    throw error;
  }
}

/** Plays one tone after the other until it is stopped. */
export function keepPlaying(session) {
  let isStopped = false;
  let player;
  const ended = (async () => {
    for (let round = 0; !isStopped; round += 1) {
      player = await startPlayer(session,
        { name: `tone${round}`, hertz: 440, seconds: 30 });
      const { child } = player;
      // A player may hang at its end, which is its own affair.
      await until(() => isStopped || child.exitCode !== null,
        'the end of the tone', 60_000).catch(() => {});
      await player.stop();
    }
  })();
  return {
    stop: () => {
      isStopped = true;
      return ended;
    },
  };
}
