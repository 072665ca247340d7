import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 640, height: 360, scene: { fps: 10 } });
afterEach(() => addon.stopCapture());

// The primary asks for more than the source has: the size that events carry
// is the fitted one.
const request = monitorRequest({ width: 800, height: 600 });
const ready = {
  state: 'ready', reason: 'linux-x11-capture-started', width: 640, height: 360,
};
const stopped = {
  state: 'stopped', reason: 'stopCapture', width: 640, height: 360,
};

async function eventsAfter(act, count) {
  const { events } = collect();
  act();
  await until(() => events.length >= count, `${count} events`);
  // Whatever was queued behind them is delivered by a later turn of the loop.
  await new Promise(setImmediate);
  return events;
}

test('a capture is announced ready and stopped', async () => {
  const events = await eventsAfter(() => {
    addon.captureSetup(request);
    assert.equal(addon.isCapturing(), true);
    assert.equal(addon.stopCapture(), undefined);
    assert.equal(addon.isCapturing(), false);
  }, 2);
  assert.deepEqual(events, [ready, stopped]);
  assert.deepEqual(Object.keys(events[0]),
    ['state', 'reason', 'width', 'height']);
});

test('every stop is announced, also one with nothing to stop', async () => {
  const events = await eventsAfter(() => {
    addon.captureSetup(request);
    addon.stopCapture();
    addon.stopCapture();
  }, 3);
  assert.deepEqual(events, [ready, stopped, stopped]);
});

test('a setup over a running capture is announced without a stop', async () => {
  const events = await eventsAfter(() => {
    assert.equal(addon.captureSetup(request), undefined);
    addon.captureSetup(request);
    assert.equal(addon.isCapturing(), true);
    addon.stopCapture();
  }, 3);
  assert.deepEqual(events, [ready, ready, stopped]);
});

test('a refused setup leaves no capture running and emits no event',
  async () => {
    const events = await eventsAfter(() => {
      addon.captureSetup(request);
      assert.throws(() => addon.captureSetup({}));
      assert.equal(addon.isCapturing(), false,
        'the running capture was taken down');
      addon.stopCapture();
    }, 2);
    assert.deepEqual(events, [ready, stopped]);
  });

test('a blocked host gets the first sixty-four events, no error', async () => {
  const events = await eventsAfter(() => {
    for (let stop = 0; stop < 65; stop += 1) addon.stopCapture();
  }, 64);
  addon.stopCapture();
  await until(() => events.length >= 65, 'an event after the queue is empty');
  assert.equal(events.length, 65);
});

test('events are received as plain calls with one argument', async () => {
  const calls = [];
  addon.onCaptureLifecycle(function receive(...args) {
    calls.push({ receiver: this, count: args.length });
  });
  addon.stopCapture();
  await until(() => calls.length > 0, 'the event');
  assert.deepEqual(calls, [{ receiver: undefined, count: 1 }]);
});
