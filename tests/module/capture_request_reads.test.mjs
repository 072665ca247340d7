import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, test } from 'node:test';
import {
  change, completeRequest, layersRefusal, requestWith, sourceNames,
} from '../support/capture_request_cases.mjs';

const addon = createRequire(import.meta.url)('../../index.js');

/** A view of an object that notes every property read below it. */
function watched(value, reads, path = '') {
  // A proxy is no array to the module, so arrays stay what they are.
  if (Array.isArray(value)) {
    return value.map((entry, i) => watched(entry, reads, `${path}[${i}].`));
  }
  if (value === null || typeof value !== 'object') return value;
  const views = new Map();
  return new Proxy(value, {
    get(target, key) {
      reads.push(path + String(key));
      if (!views.has(key)) {
        views.set(key, watched(target[key], reads, `${path}${String(key)}.`));
      }
      return views.get(key);
    },
  });
}

const readsOf = (request, message) => {
  const reads = [];
  assert.throws(() => addon.captureSetup(watched(request, reads)),
    { message });
  return reads;
};

const under = (path, keys) => keys.map((key) => `${path}.${key}`);

const head = ['source', 'capture', 'audio', 'source.backend', 'source.kind',
  ...under('capture', ['width', 'height', 'fps', 'bitrate', 'minBitrate',
    'maxBitrate', 'temporalLayerCount', 'gopSize', 'bFrames', 'enableCABAC',
    'lowLatencyMode', 'encoderRequirement']),
  'audio.mode'];

const ofSource = {
  'x11 window': ['source.handle'],
  'x11 monitor': ['source.handle', 'source.geometry',
    ...under('source.geometry', ['x', 'y', 'width', 'height'])],
  portal: ['portal',
    ...under('portal', ['pipeWireFd', 'pipeWireNodeId', 'sourceType',
      'streamSize', 'streamSize.width', 'streamSize.height', 'label',
      'streamId', 'mappingId', 'pipeWireSerial', 'restoreTokenUsed',
      'restoreTokenUpdated'])],
};

const sound = ['linuxAudio',
  ...under('linuxAudio', ['mode', 'pipeWireTargetObjects',
    'pipeWireAudioSources'])];

const topology = ['capture.topology',
  ...under('capture.topology', ['mode', 'branches'])];

const firstBranch = under('capture.topology.branches.[0]',
  ['width', 'height', 'fps', 'bitrate']);

describe('a request', () => {
  for (const sourceName of sourceNames) {
    test(`is read once and in order: ${sourceName}`, () => {
      assert.deepEqual(readsOf(completeRequest(sourceName), layersRefusal),
        [...head, ...ofSource[sourceName], ...sound, ...topology,
          ...firstBranch]);
    });
  }

  test('is read no further than its first fault', () => {
    const request = requestWith('portal', { 'source.kind': 'region' });
    assert.deepEqual(
      readsOf(request, 'source.kind must be "window" or "monitor"'),
      head.slice(0, 5));
  });

  test('is not asked for its linuxAudio when no sound is wanted', () => {
    const request = requestWith('portal', { 'audio.mode': 'none' });
    assert.deepEqual(readsOf(request, layersRefusal),
      [...head, ...ofSource.portal, ...topology, ...firstBranch]);
  });

  test('is not asked for what its branches hold in direct mode', () => {
    const request = requestWith('portal', { 'capture.topology.mode': 'direct' });
    assert.deepEqual(readsOf(request, layersRefusal),
      [...head, ...ofSource.portal, ...sound, ...topology]);
  });

  test('is judged by the value that it gave first', () => {
    const request = completeRequest('portal');
    let asked = 0;
    Object.defineProperty(request.capture, 'gopSize', {
      get: () => (asked++ === 0 ? 55 : 'changed'),
    });
    assert.throws(() => addon.captureSetup(request),
      { message: layersRefusal });
    assert.equal(addon.getStats().gopSize, 55);
  });

  test('may be made of functions, instances and bare objects', () => {
    const request = completeRequest('portal');
    request.source = Object.assign(() => {}, request.source);
    request.capture.topology =
      Object.assign(Object.create(null), request.capture.topology);
    request.audio = new (class Audio {
      get mode() { return 'process'; }
    })();
    const asFunction = Object.assign(function request() {}, request);
    assert.throws(() => addon.captureSetup(asFunction),
      { message: layersRefusal });
  });
});

describe('an error of the request itself', () => {
  const paths = [...new Set([...head, ...ofSource.portal, ...sound,
    ...topology])];

  const throwing = (path, error) => {
    const keys = path.split('.');
    const request = completeRequest('portal');
    const last = keys.pop();
    const object = keys.reduce((value, key) => value[key], request);
    Object.defineProperty(object, last, { get() { throw error; } });
    return request;
  };

  const thrownBy = (request) => {
    try {
      addon.captureSetup(request);
    } catch (error) {
      return error;
    }
    return assert.fail('nothing was thrown');
  };

  test('reaches the caller as it is from every key', () => {
    for (const path of paths) {
      const error = new RangeError(`from ${path}`);
      assert.equal(thrownBy(throwing(path, error)), error);
      assert.equal(addon.isCapturing(), false);
    }
  });

  test('reaches the caller as it is whatever it is', () => {
    for (const error of [null, undefined, 5, 'text', Object.freeze({})]) {
      assert.equal(thrownBy(throwing('capture.fps', error)), error);
    }
  });

  test('reaches the caller from the elements of a list', () => {
    const error = new Error('from an element');
    const list = [1, 2];
    Object.defineProperty(list, 1, { get() { throw error; } });
    for (const path of ['linuxAudio.pipeWireTargetObjects',
      'linuxAudio.pipeWireAudioSources']) {
      const request = requestWith('portal', { [path]: list });
      assert.equal(thrownBy(request), error);
    }
  });

  test('reaches the caller from a description that will not be kept', () => {
    const error = new Error('from a description');
    const description = {};
    Object.defineProperty(description, 'targetObject', {
      get() { throw error; },
    });
    const request = requestWith('portal', {
      'linuxAudio.pipeWireTargetObjects': [1],
      'linuxAudio.pipeWireAudioSources': [{}, {}, description],
    });
    assert.equal(thrownBy(request), error);
  });

  test('reaches the caller from a revoked proxy', () => {
    const { proxy, revoke } = Proxy.revocable({}, {});
    revoke();
    assert.throws(() => addon.captureSetup(proxy), TypeError);
    const request = change(completeRequest('portal'), 'portal', proxy);
    assert.throws(() => addon.captureSetup(request), TypeError);
  });

  test('leaves the next request unharmed', () => {
    thrownBy(throwing('portal', new Error('once')));
    assert.throws(() => addon.captureSetup(completeRequest('portal')),
      { message: layersRefusal });
  });
});
