import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 10 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });

test('setBitrate takes exactly one number', () => {
  const refused = {
    name: 'TypeError',
    message: 'setBitrate requires one bitrate number in bits per second',
  };
  for (const args of [[], [undefined], [null], ['1000000'], [{}], [10n],
    [1_000_000, 1], [1_000_000, undefined]]) {
    assert.throws(() => addon.setBitrate(...args), refused);
  }
});

test('setBitrate needs a running capture', () => {
  for (const value of [1_000_000, Number.NaN, Infinity, -1, 1e12]) {
    assert.throws(() => addon.setBitrate(value), {
      name: 'Error',
      message: 'Linux setBitrate requires an active capture pipeline',
    });
  }
});

test('setBitrate needs the hardware path', () => {
  addon.captureSetup(request);
  try {
    assert.throws(() => addon.setBitrate(1_000_000), {
      name: 'Error',
      message:
        'Linux setBitrate requires active hardware simulcast FPS capture',
    });
    assert.throws(() => addon.setBitrate('1000000'), { name: 'TypeError' });
  } finally {
    addon.stopCapture();
  }
});

test('updateAudioTargets takes an object', () => {
  const refused = {
    name: 'TypeError',
    message: 'updateAudioTargets requires one linuxAudio object',
  };
  for (const args of [[], [undefined], [null], [7], ['text'], [true]]) {
    assert.throws(() => addon.updateAudioTargets(...args), refused);
  }
});

test('updateAudioTargets needs a running capture, then one with sound', () => {
  // What the object holds is looked at later, so an empty one does here.
  assert.throws(() => addon.updateAudioTargets({}), {
    name: 'Error',
    message: 'Linux updateAudioTargets requires an active capture pipeline',
  });
  addon.captureSetup(request);
  try {
    assert.throws(() => addon.updateAudioTargets({}), {
      name: 'Error',
      message: 'Linux updateAudioTargets requires an active audio pipeline',
    });
  } finally {
    addon.stopCapture();
  }
});

test('forceKeyframe without a capture answers false and says why', () => {
  addon.resetStats();
  assert.equal(addon.forceKeyframe('ignored'), false);
  const { openH264Errors, lastOpenH264Error } = addon.getStats();
  assert.equal(lastOpenH264Error,
    'Linux ForceKeyframe requires active OpenH264 or hardware video encoders');
  assert.equal(openH264Errors, 0);
});

test('windows and monitors are not listed during a capture either', () => {
  addon.captureSetup(request);
  try {
    assert.deepEqual(addon.listWindows(), []);
    assert.deepEqual(addon.listMonitors(), []);
  } finally {
    addon.stopCapture();
  }
});
