import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach, describe, test } from
  'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import publishing from '../../lib/publish/index.js';
import session from '../../lib/session/index.js';
import { startBrowser } from '../support/chromium.mjs';
import { useDisplay } from '../support/display.mjs';
import { addSink, startPipeWire } from '../support/pipewire.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';
import {
  countLost, enterOwnNetwork, loseDatagrams, ownAddress, passOnly,
} from '../support/own_network.mjs';
import { waitForColours, waitForMotion } from '../support/preview_page.mjs';
import { relayPorts, startRelay } from '../support/relay.mjs';
import { openReceiver } from '../support/receiver_page.mjs';
import { until } from '../support/until.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

enterOwnNetwork();

const size = { width: 640, height: 360 };
useDisplay({ ...size, scene: { fps: 30 } });

// An encoder that has few bits takes a few steps of a colour away.
const mostColourError = 8;
const toneHertz = 440;

let browser;
let pipewire;
let player;
before(async () => {
  pipewire = await startPipeWire();
  Object.assign(process.env, pipewire.environment);
  await addSink(pipewire);
  player = await startPlayer(pipewire,
    { name: 'tone', hertz: toneHertz, seconds: 120 });
  browser = await startBrowser();
});
after(async () => {
  await browser?.stop();
  await player?.stop();
  await pipewire?.stop();
});

const startCapture = (video = {}) => session.startCapture({
  source: { type: 'monitor', geometry: { x: 0, y: 0, ...size } },
  video: { fps: 30, bitrate: 2_000_000, ...video },
  audio: 'system',
});

describe('a capture that is published to a browser', () => {
  let capture;
  let receiver;
  let door;
  let publication;
  before(async () => {
    capture = await startCapture({ layers: 3 });
    receiver = await openReceiver(browser);
    door = await openWhipDoor(receiver.answer, { token: 'secret' });
    publication =
      await publishing.publish(capture, { url: door.url, token: 'secret' });
  });
  after(async () => {
    await publication?.stop();
    await capture?.stop();
    await door?.close();
  });

  test('shows its colours, moving', async () => {
    const error = await waitForColours(receiver.page, 0, mostColourError);
    assert.ok(error <= mostColourError, `${error} steps away`);
    await waitForMotion(receiver.page, 0, 5);
  });

  test('is heard', async () => {
    await until(async () =>
      Math.abs(await receiver.pitch() - toneHertz) < 10, 'the tone');
  });

  test('tells how it goes', async () => {
    await until(() => publication.stats().roundTripMs !== null,
      'a report of the receiver');
    await until(() => publication.stats().branches[0].frames > 30 &&
      publication.stats().audio.packets > 50, 'pictures and sound');
    const { state, branches, leftOut, loss } = publication.stats();
    assert.equal(state, 'connected');
    assert.equal(branches.length, 1);
    assert.equal(leftOut, null);
    assert.ok(loss < 0.1, `${loss}`);
  });

  test('ends at the server too', async () => {
    await publication.stop();
    assert.equal(publication.state, 'ended');
    assert.deepEqual(await publication.ended, { reason: 'stop', error: null });
    const { method, url } = door.requests.at(-1);
    assert.deepEqual([method, url.startsWith('/session/')], ['DELETE', true]);
    for (const { headers } of door.requests) {
      assert.equal(headers.authorization, 'Bearer secret');
    }
    assert.ok(capture.isActive);
  });
});

describe('a way that loses packets', () => {
  let capture;
  let receiver;
  let door;
  let publication;
  before(async () => {
    capture = await startCapture({ layers: 3 });
    receiver = await openReceiver(browser);
    door = await openWhipDoor(receiver.answer);
    publication = await publishing.publish(capture, { url: door.url });
    await waitForMotion(receiver.page, 0, 3);
  });
  beforeEach(() => receiver.tellFreezes());
  afterEach(async (context) => {
    loseDatagrams(0);
    context.diagnostic(await receiver.tellFreezes());
  });
  after(async () => {
    await publication?.stop();
    await capture?.stop();
    await door?.close();
  });

  test('sends them again at two of a hundred', async () => {
    loseDatagrams(2);
    await until(() => publication.stats().branches[0].retransmitted > 3,
      'packets that are sent again');
    await waitForMotion(receiver.page, 0, 15);
    assert.ok(countLost() > 3);
  });

  // Before those that lose more: what they lose of the signs that the other side
  // still listens would add up with these three seconds.
  test('shows a moving picture again after three seconds of nothing',
    async () => {
      loseDatagrams(100);
      await sleep(3_000);
      loseDatagrams(0);
      await waitForMotion(receiver.page, 0, 10);
      assert.equal(publication.stats().reconnects, 0);
    });

  test('gets fewer layers at thirty of a hundred', async () => {
    const { keyframeRequests, branches: [before] } = publication.stats();
    loseDatagrams(30);
    const atLeast = sleep(3_000);
    await until(() => publication.stats().leftOut !== null,
      'layers that are left out');
    assert.ok(publication.stats().leftOut.layersSent < 3);
    await until(() => publication.stats().branches[0].leftOutFrames >
      before.leftOutFrames + 10, 'pictures that are left out');
    // Too much is lost to be shown without a fresh start.
    await until(() => publication.stats().keyframeRequests > keyframeRequests,
      'a request for a keyframe');
    await atLeast;
    loseDatagrams(0);
    await waitForMotion(receiver.page, 0, 10);
  });

  test('is found anew when it was lost', async () => {
    const { reconnects } = publication.stats();
    const states = [];
    publication.events.on('state', ({ state }) => states.push(state));
    loseDatagrams(100);
    await until(() => publication.state === 'reconnecting', 'the loss');
    loseDatagrams(0);
    await until(() => publication.state === 'connected', 'the new connection');
    await waitForMotion(receiver.page, 0, 10);
    assert.deepEqual(states, ['reconnecting', 'connected']);
    assert.equal(publication.stats().reconnects, reconnects + 1);
  });
});

describe('a way that leads over a relay', () => {
  let capture;
  let receiver;
  let relay;
  before(async () => {
    relay = await startRelay(ownAddress);
    capture = await startCapture();
    receiver = await openReceiver(browser);
    passOnly(relayPorts);
  });
  after(async () => {
    loseDatagrams(0);
    await capture?.stop();
    await relay?.stop();
  });

  for (const [transport, method] of
    [['udp', 'OPTIONS'], ['tcp', 'OPTIONS'], ['udp', 'POST']]) {
    test(`by ${transport}, told with the answer to ${method}, shows motion`,
      async () => {
        const allocations = relay.countAllocations();
        const door = await openWhipDoor(receiver.answer,
          { links: { [method]: relay.link(transport) } });
        try {
          const publication =
            await publishing.publish(capture, { url: door.url });
          await waitForMotion(receiver.page, 0, 3);
          await publication.stop();
          assert.ok(relay.countAllocations() > allocations);
        } finally {
          await door.close();
        }
      });
  }
});

test('a certificate that is not the one of the answer is refused',
  async () => {
    const capture = await startCapture();
    const receiver = await openReceiver(browser);
    const door = await openWhipDoor(async (offer) =>
      (await receiver.answer(offer)).replace(
        /(a=fingerprint:sha-256 )(..)/g,
        (_, start, byte) => `${start}${byte === '00' ? '01' : '00'}`));
    try {
      await assert.rejects(
        publishing.publish(capture, { url: door.url, reconnect: false }),
        { code: 'ERR_PUBLISH_PROGRAM', message: /certificate of the other/ });
    } finally {
      await capture.stop();
      await door.close();
    }
  });
