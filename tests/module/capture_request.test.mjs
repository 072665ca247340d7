import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, test } from 'node:test';
import {
  change, checksOf, completeRequest, lastRefusal, lastRefusedWith,
  layersRefusal, missing, requestWith, sourceNames,
} from '../support/capture_request_cases.mjs';

const addon = createRequire(import.meta.url)('../../index.js');

/** The message that a request is refused with; it must be a plain Error. */
function refusalOf(...args) {
  let refusal;
  try {
    addon.captureSetup(...args);
  } catch (error) {
    refusal = error;
  }
  assert.ok(refusal instanceof Error, 'the request was not refused');
  assert.equal(addon.isCapturing(), false);
  return refusal.message;
}

const isContainerOf = (outer, inner) => inner.startsWith(`${outer}.`);

/** Whether one request can fail both checks at once. */
const canFailTogether = (earlier, later) =>
  earlier.path !== later.path &&
  !isContainerOf(earlier.path, later.path) &&
  !isContainerOf(later.path, earlier.path);

describe('a request with one fault', () => {
  test('is refused when it is no object', () => {
    for (const argument of [undefined, null, true, 1, 1n, 'x', Symbol('x')]) {
      assert.equal(refusalOf(argument),
        'captureSetup requires one canonical native capture DTO');
    }
    assert.equal(refusalOf(),
      'captureSetup requires one canonical native capture DTO');
  });

  test('is refused as incomplete when it is any other object', () => {
    const objects =
      [{}, [], () => {}, new Map(), Object.create(null), new Proxy({}, {})];
    for (const argument of objects) {
      assert.equal(refusalOf(argument), 'source must be an object');
    }
  });

  for (const sourceName of sourceNames) {
    test(`is refused by the check that it fails: ${sourceName}`, () => {
      for (const { path, value, message } of checksOf(sourceName)) {
        const request = requestWith(sourceName, { [path]: value });
        assert.equal(refusalOf(request), message, path);
      }
    });
  }

  test('is refused for every wrong type of a required key', () => {
    const values = [undefined, null, true, 1, 1n, '1', Symbol('s'), {}, [],
      () => {}, Object(1), Object('1'), Object(true)];
    const hasType = (type, value) => type === 'object'
      ? value !== null && ['object', 'function'].includes(typeof value)
      : typeof value === type;
    for (const { path, type, message } of checksOf('portal')) {
      if (type === undefined) continue;
      for (const value of values) {
        if (hasType(type, value)) continue;
        assert.equal(refusalOf(requestWith('portal', { [path]: value })),
          message, `${path} as ${typeof value}`);
      }
    }
  });

  test('is refused when system audio is described as something else', () => {
    for (const mode of ['system', 'auto']) {
      for (const linuxMode of ['auto', 'process', 'none', '']) {
        const request = requestWith('x11 window', {
          'audio.mode': mode,
          'linuxAudio.mode': linuxMode,
        });
        assert.equal(refusalOf(request),
          'linuxAudio.mode must be "system" for system audio');
      }
    }
  });

  test('is refused when process audio is described as something else', () => {
    for (const linuxMode of ['auto', 'none', '']) {
      assert.equal(
        refusalOf(requestWith('portal', { 'linuxAudio.mode': linuxMode })),
        'linuxAudio.mode must be "process" for selected-process audio');
    }
  });

  test('is refused with the audio mode that it asked for', () => {
    for (const mode of ['', 'None', 'system ', 'ton über alles']) {
      assert.equal(refusalOf(requestWith('portal', { 'audio.mode': mode })),
        `unsupported Linux audio mode: ${mode}`);
    }
  });

  test('is refused when a window handle is no positive safe integer', () => {
    const handles = [0, -1, 0.5, 1.5, 2 ** 53, 2 ** 64, NaN, Infinity,
      -Infinity, Number.MIN_VALUE];
    for (const handle of handles) {
      assert.equal(
        refusalOf(requestWith('x11 window', { 'source.handle': handle })),
        'handle must be a positive safe integer', String(handle));
    }
  });

  test('is refused when a monitor has any handle but null', () => {
    for (const handle of [undefined, missing, 0, '', false, {}]) {
      assert.equal(
        refusalOf(requestWith('x11 monitor', { 'source.handle': handle })),
        'source.handle must be null for Linux x11 monitor capture');
    }
  });

  test('is refused when a target object is below 1 as a 32-bit number', () => {
    for (const target of [-1, 0, 0.9, NaN, Infinity, 2 ** 31, 2 ** 32]) {
      const request = requestWith('portal',
        { 'linuxAudio.pipeWireTargetObjects': [target] });
      assert.equal(refusalOf(request),
        'linuxAudio.pipeWireTargetObjects entries must be positive',
        String(target));
    }
  });

  test('is refused when a number loses its value in 32 bits', () => {
    const cases = [
      ['capture.width', 2 ** 32,
        'video branch 0 requires positive width and height'],
      ['capture.width', 2 ** 31,
        'video branch 0 requires positive width and height'],
      ['capture.width', 1281.9,
        'video branch 0 requires even width and height for H.264'],
      ['capture.fps', NaN, 'video branch 0 requires positive fps'],
      ['capture.fps', 0.9, 'video branch 0 requires positive fps'],
      ['capture.bitrate', Infinity,
        'video branch 0 requires positive bitrate and maxBitrate'],
      ['portal.streamSize.width', 2 ** 31,
        'portal.streamSize width and height must be positive'],
      ['portal.pipeWireNodeId', 2 ** 32,
        'portal.pipeWireFd and portal.pipeWireNodeId are required'],
      ['portal.pipeWireFd', 2 ** 31,
        'portal.pipeWireFd and portal.pipeWireNodeId are required'],
    ];
    for (const [path, value, message] of cases) {
      assert.equal(refusalOf(requestWith('portal', { [path]: value })),
        message, `${path} ${value}`);
    }
  });

  test('is refused when a list only resembles an array', () => {
    const lists = [{ length: 0 }, 'ab', new Set(), new Uint32Array([42]),
      new Proxy([42], {}), null];
    for (const list of lists) {
      assert.equal(
        refusalOf(requestWith('portal', { 'capture.topology.branches': list })),
        lastRefusal);
      assert.equal(
        refusalOf(requestWith('portal',
          { 'linuxAudio.pipeWireTargetObjects': list })),
        'linuxAudio.pipeWireTargetObjects must be an array');
    }
  });

  test('is refused in direct mode too without a list of branches', () => {
    const request = requestWith('portal', {
      'capture.topology.mode': 'direct',
      'capture.topology.branches': missing,
    });
    assert.equal(refusalOf(request), lastRefusal);
  });

  test('is refused for its second secondary branch by that number', () => {
    const good = { width: 640, height: 360, fps: 15, bitrate: 900_000 };
    const request = requestWith('portal', {
      'capture.topology.branches': [good, { ...good, fps: 0 }],
    });
    assert.equal(refusalOf(request), 'video branch 2 requires positive fps');
  });

  test('is refused for three branches before any of them is read', () => {
    const branches = [];
    for (const index of [0, 1, 2]) {
      Object.defineProperty(branches, index, {
        get() { throw new Error('a branch was read'); },
      });
    }
    assert.equal(
      refusalOf(requestWith('portal',
        { 'capture.topology.branches': branches })),
      'Linux Wayland parity supports one primary branch ' +
      'and at most two secondary branches');
  });

  test('is refused at the first hole of an endless list', () => {
    const endless = [];
    endless.length = 2 ** 32 - 1;
    assert.equal(
      refusalOf(requestWith('portal',
        { 'linuxAudio.pipeWireTargetObjects': endless })),
      'linuxAudio.pipeWireTargetObjects entries must be numbers');
    assert.equal(
      refusalOf(requestWith('portal',
        { 'capture.topology.branches': endless })),
      'Linux Wayland parity supports one primary branch ' +
      'and at most two secondary branches');
  });
});

describe('a request with two faults', () => {
  // Neighbours alone would not do: some neighbours are checks of one value.
  const reach = 3;
  for (const sourceName of sourceNames) {
    test(`is refused by the check that comes first: ${sourceName}`, () => {
      const checks = checksOf(sourceName);
      let pairs = 0;
      for (const [index, earlier] of checks.entries()) {
        for (const later of checks.slice(index + 1, index + 1 + reach)) {
          if (!canFailTogether(earlier, later)) continue;
          const request = completeRequest(sourceName);
          change(request, later.path, later.value);
          change(request, earlier.path, earlier.value);
          assert.equal(refusalOf(request), earlier.message,
            `${earlier.path} before ${later.path}`);
          pairs += 1;
        }
      }
      assert.ok(pairs > checks.length, `only ${pairs} pairs were tried`);
    });
  }

  test('is refused by a container before the contents of another', () => {
    const pairs = [
      [{ source: 1, 'capture.width': 'x', 'audio.mode': 1 },
        'source must be an object'],
      [{ capture: 1, 'source.backend': 'x' }, 'capture must be an object'],
      [{ audio: 1, 'source.backend': 'x' }, 'audio must be an object'],
      [{ 'portal.pipeWireFd': -1, 'portal.streamSize': 1 },
        'streamSize must be an object'],
      [{ 'portal.pipeWireFd': -1, 'audio.mode': 'x' },
        'portal.pipeWireFd and portal.pipeWireNodeId are required'],
      [{ 'capture.topology': 1, 'audio.mode': 'x' },
        'unsupported Linux audio mode: x'],
      [{ 'capture.topology': 1, 'capture.width': 0 },
        'topology must be an object'],
      [{ 'capture.width': 0, 'capture.topology.branches': 1 },
        'video branch 0 requires positive width and height'],
    ];
    for (const [changes, message] of pairs) {
      assert.equal(refusalOf(requestWith('portal', changes)), message);
    }
  });
});

describe('a value that is of no use is accepted', () => {
  test('in keys that belong to another kind of source', () => {
    const extra = { portal: 1, unknown: 1, 'source.geometry': 1 };
    assert.equal(refusalOf(lastRefusedWith('x11 window', extra)), lastRefusal);
    assert.equal(
      refusalOf(lastRefusedWith('portal', { 'source.handle': 'x' })),
      lastRefusal);
  });

  test('in linuxAudio when no sound is wanted', () => {
    for (const linuxAudio of [missing, 1, { mode: 1 }]) {
      assert.equal(
        refusalOf(lastRefusedWith('portal',
          { 'audio.mode': 'none', linuxAudio })),
        lastRefusal);
    }
  });

  test('in the branches of direct mode', () => {
    const request = requestWith('portal', {
      'capture.topology.mode': 'direct',
      'capture.topology.branches': [1, 2, 3],
    });
    assert.equal(refusalOf(request), layersRefusal);
  });

  test('in optional keys of the portal', () => {
    const request = lastRefusedWith('portal', {
      'portal.label': 5,
      'portal.streamId': null,
      'portal.mappingId': {},
      'portal.pipeWireSerial': 'x',
      'portal.restoreTokenUsed': 1,
      'portal.restoreTokenUpdated': 'true',
    });
    assert.equal(refusalOf(request), lastRefusal);
  });

  test('in a list of audio sources that is none', () => {
    for (const sources of [missing, null, 1, 'x', {}, [null, 7, 'x']]) {
      assert.equal(
        refusalOf(lastRefusedWith('portal',
          { 'linuxAudio.pipeWireAudioSources': sources })),
        lastRefusal);
    }
  });
});
