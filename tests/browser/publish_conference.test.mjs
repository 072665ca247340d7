import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import publishing from '../../lib/publish/index.js';
import session from '../../lib/session/index.js';
import { startBrowser } from '../support/chromium.mjs';
import { useDisplay } from '../support/display.mjs';
import { startJanus } from '../support/janus.mjs';
import { enterOwnNetwork } from '../support/own_network.mjs';
import { waitForMotion } from '../support/preview_page.mjs';
import { openReceiver } from '../support/receiver_page.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

enterOwnNetwork();

const size = { width: 640, height: 360 };
useDisplay({ ...size, scene: { fps: 30 } });

describe('three branches through a conference server', () => {
  let browser;
  let capture;
  let door;
  let janus;
  let publication;
  let receiver;
  let subscriber;
  before(async () => {
    browser = await startBrowser();
    janus = await startJanus();
    door = await openWhipDoor((offer) => janus.publish(offer));
    capture = await session.startCapture({
      source: { type: 'monitor', geometry: { x: 0, y: 0, ...size } },
      video: {
        fps: 30,
        layers: 3,
        branches: [{ width: 320, fps: 15 }, { width: 160, fps: 7 }],
      },
    });
    publication = await publishing.publish(capture, { url: door.url });
    receiver = await openReceiver(browser);
    subscriber = await janus.subscribe();
    await subscriber.start(await receiver.answer(subscriber.offer));
  });
  after(async () => {
    await subscriber?.close();
    await publication?.stop();
    await capture?.stop();
    await door?.close();
    await janus?.stop();
    await browser?.stop();
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
        const startedMs = performance.now();
        await subscriber.choose(substream);
        await receiver.page.until(
          `document.querySelector('canvas').width === ${width}`,
          `the picture of ${width} points`);
        context.diagnostic(
          `shown after ${Math.round(performance.now() - startedMs)} ms`);
        if (width >= 320) await waitForMotion(receiver.page, 0, 3);
      });
  }
});
