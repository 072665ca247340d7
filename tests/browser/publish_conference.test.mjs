import assert from 'node:assert/strict';
import { readdirSync } from 'node:fs';
import { after, before, describe, mock, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import publishing from '../../lib/publish/index.js';
import session from '../../lib/session/index.js';
import { startBrowser } from '../support/chromium.mjs';
import { startCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { startJanus } from '../support/janus.mjs';
import { watchKeyframes } from '../support/keyframe_watch.mjs';
import { enterOwnNetwork } from '../support/own_network.mjs';
import { waitForMotion } from '../support/preview_page.mjs';
import { endHelper, startHelper } from '../support/processes.mjs';
import { openReceiver } from '../support/receiver_page.mjs';
import { until } from '../support/until.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

enterOwnNetwork();

// A minute shows more than the suite has time for.
const noiseSeconds = Number(process.env.LINUX_CAPTURE_TEST_NOISE_SECONDS ?? 5);

const size = { width: 640, height: 360 };
const screen = { width: 1280, height: 720 };
const display = useDisplay({ ...screen, scene: { ...size, fps: 30 } });

const room = {};
before(async () => {
  room.browser = await startBrowser();
  room.janus = await startJanus();
  room.isOther = false;
  room.door = await openWhipDoor((offer) =>
    room.janus.publish(offer, { isOtherRoom: room.isOther }));
  room.receiver = await openReceiver(room.browser);
});
after(async () => {
  await room.door?.close();
  await room.janus?.stop();
  await room.browser?.stop();
});

const startCapture = (area, branches, bitrate) => session.startCapture({
  source: { type: 'monitor', geometry: { x: 0, y: 0, ...area } },
  video: { fps: 30, layers: 3, bitrate, branches },
});

async function subscribe() {
  const subscriber = await room.janus.subscribe();
  await subscriber.start(await room.receiver.answer(subscriber.offer));
  return subscriber;
}

const isShown = (width) => room.receiver.page.until(
  `document.querySelector('canvas').width === ${width}`,
  `the picture of ${width} points`);

describe('three branches through a conference server', () => {
  let capture;
  let publication;
  let subscriber;
  let watch;
  before(async () => {
    capture = await startCapture(size,
      [{ width: 320, fps: 15 }, { width: 160, fps: 7 }]);
    const { clockOriginUs } = capture.stats().sync;
    watch = watchKeyframes(mock, () =>
      Number(process.hrtime.bigint() / 1000n) - clockOriginUs);
    publication = await publishing.publish(capture, { url: room.door.url });
    subscriber = await subscribe();
  });
  after(async () => {
    await publication?.stop();
    await capture?.stop();
    mock.restoreAll();
  });

  test('are all taken', () => {
    assert.deepEqual(publication.stats().branches.map(({ rid }) => rid),
      ['h', 'm', 'l']);
  });

  // From the smallest to the largest and back.
  for (const [substream, width] of
    [[0, 160], [2, 640], [1, 320], [2, 640], [0, 160]]) {
    test(`are shown ${width} points wide when that one is chosen`,
      async (context) => {
        // What is asked for at once behind a keyframe has to wait.
        await until(() => watch.isDone() && watch.quietMs() > 700,
          'an end of earlier requests');
        const startedMs = performance.now();
        await subscriber.choose(substream);
        await isShown(width);
        context.diagnostic(
          `shown after ${Math.round(performance.now() - startedMs)} ms`);
        if (width >= 320) await waitForMotion(room.receiver.page, 0, 3);
      });
  }

  test('have their keyframes in the next picture behind a request',
    async (context) => {
      await until(watch.isDone, 'the keyframes');
      const free = watch.requests.filter(({ quietMs }) => quietMs > 700);
      assert.ok(free.length >= 3, `${free.length} requests`);
      for (const { lateBy, sentAfterMs } of free) {
        context.diagnostic(`keyframes sent after ${
          [...sentAfterMs.values()].map(Math.round).join(', ')} ms`);
        // One picture may already be in the encoder.
        for (const { pictures } of lateBy) assert.ok(pictures <= 1, pictures);
      }
    });

  test('have one way out of a capture, and another process has its own',
    async () => {
      await assert.rejects(
        publishing.publish(capture, { url: room.door.url }),
        { code: 'ERR_PUBLISH_ARGUMENT', message: /has a reader already/ });
      const other = startCommand(
        ['publish', room.door.url, '--monitor', '--size', '320x180'],
        { DISPLAY: display.display, WAYLAND_DISPLAY: '' });
      try {
        await until(() => other.output.text.includes('Ctrl-C ends it'),
          'the other publication');
        const watching = await subscribe();
        await isShown(320);
        await watching.close();
        const { branches: [{ frames }] } = publication.stats();
        await until(() => publication.stats().branches[0].frames > frames + 10,
          'more pictures of the first one');
        assert.equal(publication.stats().reconnects, 0);
      } finally {
        other.child.kill('SIGINT');
        await other.end();
      }
    });
});

describe('noise of 8 Mbit/s through a conference server', () => {
  let noise;
  let capture;
  let publication;
  before(async () => {
    // Noise is what takes the most bits of all pictures.
    noise = startHelper('ffplay', ['-loglevel', 'error', '-noborder', '-left',
      '0', '-top', '0', '-f', 'lavfi', '-i', `color=gray:s=${size.width}x${
        size.height}:r=30,noise=alls=16:allf=t+u`],
    { env: { ...process.env, DISPLAY: display.display,
      SDL_VIDEODRIVER: 'x11', SDL_RENDER_DRIVER: 'software' },
    stdio: ['ignore', 'inherit', 'inherit'] });
    capture = await startCapture(size, [
      { width: 320, fps: 15, bitrate: 1_700_000 },
      { width: 160, fps: 7, bitrate: 500_000 },
    ], 5_800_000);
    publication = await publishing.publish(capture, { url: room.door.url });
    await subscribe();
  });
  after(async () => {
    await publication?.stop();
    await capture?.stop();
    await endHelper(noise);
  });

  test(`goes on for ${noiseSeconds} seconds`, async (context) => {
    await room.receiver.tellFreezes();
    const startedMs = performance.now();
    const sent = [];
    let shown = (await room.receiver.statistics()).video.framesDecoded;
    while (performance.now() - startedMs < noiseSeconds * 1000) {
      await sleep(1_000);
      sent.push(publication.stats().branches
        .reduce((sum, { bitsPerSecond }) => sum + bitsPerSecond, 0));
      const before = shown;
      await until(async () => {
        shown = (await room.receiver.statistics()).video.framesDecoded;
        return shown > before;
      }, 'a picture', 5_000);
    }
    const average = sent.reduce((sum, each) => sum + each, 0) / sent.length;
    const { branches, leftOut, reconnects } = publication.stats();
    const sum = (key) => branches.reduce((all, each) => all + each[key], 0);
    context.diagnostic(`${(average / 1e6).toFixed(1)} Mbit/s, ${
      branches[0].frames} pictures of the first branch; ${
      await room.receiver.tellFreezes()}; ${sum('retransmitted')} of ${
      sum('packets')} sent again; left out: ${JSON.stringify(leftOut)}`);
    assert.equal(reconnects, 0);
    assert.ok(average > 1e6);
  });
});

describe('a conference server', () => {
  let capture;
  let publication;
  before(async () => {
    capture = await startCapture(size,
      [{ width: 320, fps: 15 }, { width: 160, fps: 7 }]);
  });
  after(async () => {
    await publication?.stop();
    await capture?.stop();
  });

  test('without H.264 is told', async () => {
    room.isOther = true;
    await assert.rejects(
      publishing.publish(capture, { url: room.door.url }),
      { code: 'ERR_PUBLISH_ANSWER', message: /allow H\.264/ });
    room.isOther = false;
  });

  test('that stands still for three seconds goes on', async (context) => {
    publication = await publishing.publish(capture, { url: room.door.url });
    await subscribe();
    await waitForMotion(room.receiver.page, 0, 10);
    await room.receiver.tellFreezes();
    room.janus.signal('SIGSTOP');
    await sleep(3_000);
    room.janus.signal('SIGCONT');
    await waitForMotion(room.receiver.page, 0, 5);
    context.diagnostic(await room.receiver.tellFreezes());
    assert.equal(publication.stats().reconnects, 0);
  });

  test('that is killed is found anew when it comes back', async (context) => {
    const held = () => readdirSync('/proc/self/fd').length;
    const before = held();
    const states = [];
    publication.events.on('state', ({ state, error }) =>
      states.push([state, error?.code]));
    const startedMs = performance.now();
    room.janus.signal('SIGKILL');
    await until(() => publication.state === 'reconnecting', 'the loss');
    context.diagnostic(
      `told after ${Math.round(performance.now() - startedMs)} ms`);
    const asked = room.door.requests.length;
    await until(() => room.door.requests.slice(asked)
      .some(({ method }) => method === 'POST'), 'a try that fails');
    await room.janus.stop();
    room.janus = await startJanus();
    await until(() => publication.state === 'connected', 'the new connection');
    await subscribe();
    await waitForMotion(room.receiver.page, 0, 5);
    assert.deepEqual(states,
      [['reconnecting', 'ERR_PUBLISH_LOST'], ['connected', undefined]]);
    assert.equal(publication.stats().reconnects, 1);
    await until(() => held() <= before, 'the descriptors of before');
  });
});
