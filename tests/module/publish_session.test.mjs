import assert from 'node:assert/strict';
import { afterEach, beforeEach, test } from 'node:test';
import publishing from '../../lib/publish/index.js';
import session from '../../lib/session/index.js';
import { useDisplay } from '../support/display.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

useDisplay();

let capture;
let door;
beforeEach(async () => {
  door = await openWhipDoor(() => 'v=0');
  capture = await session.startCapture({
    source: { type: 'monitor' },
    video: { width: 320, branches: [{ width: 160 }] },
  });
});
afterEach(async () => {
  await capture.stop();
  await door.close();
});

test('a branch that has a reader is told before anything is offered',
  async () => {
    const reader = capture.video({ branch: 1 });
    await assert.rejects(publishing.publish(capture, { url: door.url }), {
      code: 'ERR_PUBLISH_ARGUMENT', message: /branch 1 has a reader already/,
    });
    assert.deepEqual(door.requests, []);
    // What was taken for the attempt is free again.
    await capture.video({ branch: 0 }).return();
    await reader.return();
  });

test('two publications at once are one, and a refusal', async () => {
  const results = await Promise.allSettled([1, 2].map(() =>
    publishing.publish(capture, { url: door.url })));
  assert.deepEqual(results.map(({ reason }) => reason.code).sort(),
    ['ERR_PUBLISH_ANSWER', 'ERR_PUBLISH_ARGUMENT']);
  assert.ok(capture.isActive);
});

test('a program that is missing is told', async () => {
  process.env.LINUX_CAPTURE_PROGRAMS = '/nowhere';
  try {
    await assert.rejects(publishing.publish(capture, { url: door.url }),
      { code: 'ERR_PUBLISH_PROGRAM', message: /linux-capture-transport/ });
  } finally {
    delete process.env.LINUX_CAPTURE_PROGRAMS;
  }
  assert.ok(capture.isActive);
});

test('an end of the capture in the middle of the start ends it', async () => {
  const published = publishing.publish(capture, { url: door.url });
  await Promise.all([capture.stop(), assert.rejects(published)]);
});
