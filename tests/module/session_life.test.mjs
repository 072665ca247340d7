import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { listTargets, startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const screen = Object.freeze({
  type: 'monitor', geometry: { width: 640, height: 360 },
});
const video = Object.freeze({ width: 160, fps: 10 });
const context = useDisplay();

const start = (options) => startCapture({ source: screen, video, ...options });
const isActive = { name: 'CaptureError', code: 'ERR_CAPTURE_ACTIVE' };

describe('one capture at a time', () => {
  test('a second one is refused, and the first goes on', async () => {
    const capture = await start();
    await assert.rejects(start(), isActive);
    const { done } = await capture.video().next();
    assert.equal(done, false);
    await capture.stop();
  });

  test('two that start at once are one too many', async () => {
    const results = await Promise.allSettled([start(), start()]);
    assert.deepEqual(results.map(({ status }) => status),
      ['fulfilled', 'rejected']);
    assert.equal(results[1].reason.code, 'ERR_CAPTURE_ACTIVE');
    await results[0].value.stop();
  });

  test('one that was started without a session counts', async () => {
    addon.captureSetup(monitorRequest());
    await assert.rejects(start(), isActive);
    addon.stopCapture();
    await (await start()).stop();
  });

  test('one that failed to start leaves the place free', async () => {
    await assert.rejects(
      start({ source: { type: 'monitor', geometry: { width: 0, height: 1 } } }),
      { code: 'ERR_CAPTURE_ARGUMENT' });
    await assert.rejects(
      start({ source: {
        type: 'pipewire', fd: 1000, nodeId: 7, width: 64, height: 64,
      } }), { name: 'CaptureError' });
    await (await start()).stop();
  });

  test('one follows the other, many times', async () => {
    for (let round = 0; round < 5; round += 1) {
      const capture = await start();
      const { value } = await capture.video().next();
      assert.equal(value.isKeyframe, true);
      await capture.stop();
      assert.equal(addon.isCapturing(), false);
    }
  });
});

describe('the end', () => {
  test('stop may be called twice and tells once', async () => {
    const capture = await start();
    const ends = [];
    capture.events.on('stopped', (end) => ends.push(end));
    await Promise.all([capture.stop(), capture.stop()]);
    await capture.stop();
    const end = { reason: 'stop', error: null, detail: null };
    assert.deepEqual(ends, [end]);
    assert.deepEqual(await capture.ended, end);
    assert.equal(capture.isActive, false);
  });

  test('afterwards only looking is possible', async () => {
    const capture = await start();
    await capture.stop();
    const isStopped = { code: 'ERR_CAPTURE_STOPPED' };
    assert.throws(() => capture.forceKeyframe(), isStopped);
    assert.throws(() => capture.setBitrate(1_000_000), isStopped);
    await assert.rejects(capture.setAudioTargets({ processId: 1 }), isStopped);
    assert.equal(capture.stats().isActive, false);
    for await (const packet of capture.video()) assert.ok(packet.data.length);
  });

  test('leaving an "await using" block stops the capture', async () => {
    const capture = await start();
    await capture[Symbol.asyncDispose]();
    assert.equal(addon.isCapturing(), false);
  });

  test('a capture that somebody else stops has ended', async () => {
    const capture = await start();
    addon.stopCapture();
    const { reason, detail } = await capture.ended;
    assert.deepEqual({ reason, detail },
      { reason: 'source-ended', detail: 'stopCapture' });
  });
});

describe('a signal', () => {
  test('that has fired already starts nothing', async () => {
    const reason = new Error('no');
    await assert.rejects(start({ signal: AbortSignal.abort(reason) }),
      { name: 'AbortError', code: 'ABORT_ERR', cause: reason });
    assert.equal(addon.isCapturing(), false);
  });

  test('ends a running capture and its readers', async () => {
    const controller = new AbortController();
    const capture = await start({ signal: controller.signal });
    let count = 0;
    for await (const packet of capture.video()) {
      assert.equal(packet.branch, 0);
      count += 1;
      if (count === 3) controller.abort();
    }
    assert.ok(count >= 3);
    assert.equal((await capture.ended).reason, 'abort');
  });

  test('ends a start that waits for the X server', async () => {
    const server = await startXvfb();
    process.env.DISPLAY = server.display;
    server.pause();
    try {
      const controller = new AbortController();
      const options = { signal: controller.signal };
      const waiting = [
        start({ source: { type: 'monitor' }, ...options }),
        listTargets({ only: 'x11', ...options }),
      ];
      controller.abort();
      await Promise.all(waiting.map((promise) =>
        assert.rejects(promise, { code: 'ABORT_ERR' })));
    } finally {
      process.env.DISPLAY = context.display;
      server.resume();
      await server.stop();
    }
    await (await start()).stop();
  });

  test('is not kept by a capture that has ended', async () => {
    const controller = new AbortController();
    await (await start({ signal: controller.signal })).stop();
    const next = await start();
    controller.abort();
    assert.equal(next.isActive, true);
    await next.stop();
  });
});

test('a fatal error reaches reader, listener and "ended"', async () => {
  const server = await startXvfb();
  process.env.DISPLAY = server.display;
  const capture = await start();
  try {
    const errors = [];
    capture.events.on('error', (error) => errors.push(error));
    const isLost = { code: 'ERR_CAPTURE_VIDEO', isFatal: true };
    await assert.rejects(async () => {
      for await (const packet of capture.video()) {
        if (packet.isKeyframe) await server.kill();
      }
    }, isLost);
    const { reason, error } = await capture.ended;
    assert.equal(reason, 'error');
    assert.deepEqual(errors, [error]);
    assert.match(error.message, /^video: ./);
    assert.equal(addon.isCapturing(), false);
  } finally {
    await capture.stop();
    process.env.DISPLAY = context.display;
    await server.stop();
  }
});

test('without a listener for errors the process goes on', async () => {
  const server = await startXvfb();
  process.env.DISPLAY = server.display;
  const capture = await start();
  try {
    await server.kill();
    assert.equal((await capture.ended).reason, 'error');
  } finally {
    await capture.stop();
    process.env.DISPLAY = context.display;
    await server.stop();
  }
  await (await start()).stop();
});
