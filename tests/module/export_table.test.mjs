import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { runNode } from '../support/child.mjs';

const functionNames = [
  'captureSetup', 'stopCapture', 'isCapturing', 'resetStats', 'getStats',
  'listWindows', 'listMonitors', 'forceKeyframe', 'setBitrate',
  'updateAudioTargets', 'duplicateFdFromPid', 'onFragmentReady',
  'onAudioSamples', 'onCaptureLifecycle',
];

test('the module exports exactly the fourteen functions, in order', () => {
  assert.deepEqual(Object.keys(addon), functionNames);
  for (const name of functionNames) {
    assert.equal(typeof addon[name], 'function', name);
  }
});

test('windows and monitors are never listed', () => {
  for (const list of [addon.listWindows, addon.listMonitors]) {
    assert.deepEqual(list(), []);
    assert.deepEqual(list('ignored', 7), []);
    assert.notEqual(list(), list(), 'each call gives a new array');
  }
});

test('nothing is being captured after load', () => {
  assert.equal(addon.isCapturing(), false);
});

test('resetStats without a capture succeeds and returns undefined', () => {
  assert.equal(addon.resetStats(), undefined);
});

for (const name of functionNames.slice(-3)) {
  test(`${name} takes exactly one function`, () => {
    const refused = {
      name: 'TypeError',
      message: `${name} requires a callback`,
    };
    const callback = () => {};
    const bad = [
      [], [undefined], [null], [7], ['text'], [{}], [callback, undefined],
      [callback, callback],
    ];
    for (const args of bad) {
      assert.throws(() => addon[name](...args), refused);
    }
    assert.equal(addon[name](callback), undefined);
  });
}

test('a refused registration leaves the earlier callback working', async () => {
  const child = await runNode(`
    addon.onCaptureLifecycle(({ state }) => console.log('first', state));
    try {
      addon.onCaptureLifecycle(7);
    } catch (error) {
      console.log(error.name);
    }
    addon.stopCapture();
  `);
  assert.equal(child.isTimedOut, false, 'the process hangs');
  assert.equal(child.stdout, 'TypeError\nfirst stopped\n');
  assert.equal(child.code, 0);
});

test('a new callback discards what the old one has not yet received',
  async () => {
    const child = await runNode(`
      addon.onCaptureLifecycle(() => console.log('old'));
      addon.stopCapture();
      addon.onCaptureLifecycle(() => console.log('new'));
      addon.stopCapture();
    `);
    assert.equal(child.isTimedOut, false, 'the process hangs');
    assert.equal(child.stdout, 'new\n');
    assert.equal(child.code, 0);
  });
