import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, test } from 'node:test';
import {
  layersRefusal, requestWith,
} from '../support/capture_request_cases.mjs';

// No server has this number, so a capture of it cannot start.
process.env.DISPLAY = ':64999';

const addon = createRequire(import.meta.url)('../../index.js');

/** What getStats shows of a request that was read to its end. */
function parsed(sourceName, changes) {
  assert.throws(() => addon.captureSetup(requestWith(sourceName, changes)),
    { message: layersRefusal });
  return addon.getStats();
}

/** As parsed, for what only a software capture can show. */
function parsedForSoftware(sourceName, changes) {
  const request = requestWith(sourceName, {
    'capture.encoderRequirement': 'allow-degraded',
    'audio.mode': 'none',
    ...changes,
  });
  assert.throws(() => addon.captureSetup(request), Error);
  assert.equal(addon.isCapturing(), false);
  return addon.getStats();
}

/** Size, rate and index of the branches in the video launch text. */
function branchesOf({ videoPipeline }) {
  const branch =
    /width=(\d+),height=(\d+),framerate=(\d+)\/1 ! appsink name=videoSink(\d+)/g;
  return Array.from(videoPipeline.matchAll(branch),
    ([, width, height, fps, index]) =>
      `${index}: ${width}x${height}@${fps}`);
}

describe('the source of a parsed request', () => {
  test('is an X11 window of any safe integer', () => {
    for (const handle of [1, 4294967296, Number.MAX_SAFE_INTEGER]) {
      const stats = parsed('x11 window', { 'source.handle': handle });
      assert.equal(stats.sourceBackend, 'x11');
      assert.equal(stats.sourceKind, 'window');
      assert.equal(stats.sourceHandle, handle);
      assert.deepEqual(stats.x11, { windowXid: handle, kind: 'window' });
      assert.deepEqual(stats.portal.streamSize, { width: 0, height: 0 });
    }
  });

  test('is the rectangle of an X11 monitor', () => {
    const stats = parsed('x11 monitor', { 'source.geometry.x': -5.9 });
    assert.deepEqual(stats.x11, {
      windowXid: 0,
      kind: 'monitor',
      geometry: { x: -5, y: 20, width: 1920, height: 1080 },
    });
  });

  test('is a portal stream with all that the portal told', () => {
    const stats = parsed('portal', {
      'portal.label': 'Bildschirm ä',
      'portal.streamId': 'stream',
      'portal.mappingId': 'mapping',
      'portal.pipeWireSerial': 2 ** 40 + 1,
      'portal.restoreTokenUsed': true,
      'portal.restoreTokenUpdated': true,
    });
    assert.equal(stats.sourceBackend, 'portal');
    assert.equal(stats.sourceKind, 'monitor');
    assert.deepEqual(stats.portal, {
      pipeWireFd: 42,
      pipeWireNodeId: 77,
      pipeWireSerial: 2 ** 40 + 1,
      sourceType: 1,
      label: 'Bildschirm ä',
      streamId: 'stream',
      mappingId: 'mapping',
      restoreTokenUsed: true,
      restoreTokenUpdated: true,
      streamSize: { width: 2560, height: 1440 },
    });
  });

  test('keeps its defaults for what the portal did not tell', () => {
    const { portal } = parsed('portal', {
      'portal.pipeWireFd': 0,
      'portal.pipeWireNodeId': 5,
      'portal.label': 7,
      'portal.pipeWireSerial': '9',
      'portal.restoreTokenUsed': 1,
    });
    assert.equal(portal.pipeWireFd, 0);
    assert.equal(portal.pipeWireNodeId, 5);
    assert.equal(portal.label, '');
    assert.equal(portal.streamId, '');
    assert.equal(portal.mappingId, '');
    assert.equal(portal.pipeWireSerial, 0);
    assert.equal(portal.restoreTokenUsed, false);
    assert.equal(portal.restoreTokenUpdated, false);
  });

  test('has an unsigned node id', () => {
    for (const id of [-1, 4294967295]) {
      assert.equal(
        parsed('portal', { 'portal.pipeWireNodeId': id })
          .portal.pipeWireNodeId,
        4294967295);
    }
  });

  test('takes over nothing from the request before', () => {
    parsed('portal', { 'portal.label': 'before' });
    const stats = parsed('x11 window', {});
    assert.equal(stats.portal.label, '');
    assert.equal(stats.portal.pipeWireFd, -1);
    assert.equal(stats.portal.pipeWireNodeId, 0);
  });
});

describe('the encoding of a parsed request', () => {
  test('has a keyframe period of 1 to 600 frames', () => {
    const cases = [[0, 1], [-7, 1], [1, 1], [2, 2], [600, 600], [601, 600],
      [12.9, 12], [NaN, 1], [Infinity, 1], [2 ** 32 + 5, 5], [2 ** 31, 1]];
    for (const [given, kept] of cases) {
      assert.equal(parsed('portal', { 'capture.gopSize': given }).gopSize,
        kept, String(given));
    }
  });

  test('has 0 to 16 B-frames', () => {
    const cases = [[-1, 0], [0, 0], [3, 3], [16, 16], [17, 16], [-0.5, 0]];
    for (const [given, kept] of cases) {
      assert.equal(parsed('portal', { 'capture.bFrames': given }).bFrames,
        kept, String(given));
    }
  });

  test('has at most three temporal layers', () => {
    for (const [given, kept] of [[2, 2], [2.9, 2], [3, 3], [4, 3], [7, 3]]) {
      assert.equal(
        parsed('portal', { 'capture.temporalLayerCount': given })
          .temporalLayerCount,
        kept, String(given));
    }
  });

  test('has at least one temporal layer', () => {
    for (const given of [1, 0, -5, NaN, 2 ** 31]) {
      assert.equal(
        parsedForSoftware('x11 window',
          { 'capture.temporalLayerCount': given }).temporalLayerCount,
        1, String(given));
    }
  });

  test('keeps its two switches', () => {
    for (const [enableCABAC, lowLatencyMode] of
      [[true, false], [false, true]]) {
      const stats = parsed('portal', {
        'capture.enableCABAC': enableCABAC,
        'capture.lowLatencyMode': lowLatencyMode,
      });
      assert.equal(stats.enableCABAC, enableCABAC);
      assert.equal(stats.lowLatencyMode, lowLatencyMode);
    }
  });

  test('has the size of the primary fitted into the source', () => {
    const cases = [
      [{}, 1280, 720],
      [{ 'capture.width': 1920, 'capture.height': 1080 }, 1920, 1080],
      [{ 'capture.width': 3840, 'capture.height': 2160 }, 2560, 1440],
      [{
        'portal.streamSize.width': 1000,
        'portal.streamSize.height': 1000,
      }, 720, 720],
      [{
        'portal.streamSize.width': 721,
        'portal.streamSize.height': 3,
      }, 720, 2],
    ];
    for (const [changes, width, height] of cases) {
      const stats = parsed('portal', changes);
      assert.deepEqual([stats.width, stats.height], [width, height]);
    }
  });

  test('has the size asked for when the source size is unknown', () => {
    const stats = parsed('x11 window',
      { 'capture.width': 7680, 'capture.height': 32 });
    assert.deepEqual([stats.width, stats.height], [7680, 32]);
  });
});

describe('the branches of a parsed request', () => {
  const secondary = (width, height, fps) =>
    ({ width, height, fps, bitrate: 900_000 });
  const branchesAfter = (sourceName, mode, ...branches) =>
    branchesOf(parsedForSoftware(sourceName, {
      'capture.topology.mode': mode,
      'capture.topology.branches': branches,
    }));

  test('are the primary alone in direct mode', () => {
    assert.deepEqual(
      branchesAfter('x11 monitor', 'direct', secondary(640, 360, 15)),
      ['0: 1280x720@30']);
    assert.deepEqual(branchesAfter('x11 monitor', 'direct', 1, 2, 3),
      ['0: 1280x720@30']);
  });

  test('are the primary alone in topology mode without entries', () => {
    assert.deepEqual(branchesAfter('x11 monitor', 'topology'),
      ['0: 1280x720@30']);
  });

  test('are all three when each is smaller and slower', () => {
    assert.deepEqual(
      branchesAfter('x11 monitor', 'topology',
        secondary(640, 360, 15), secondary(320, 180, 7)),
      ['0: 1280x720@30', '1: 640x360@15', '2: 320x180@7']);
  });

  test('lose a secondary with the frame rate of the primary', () => {
    assert.deepEqual(
      branchesAfter('x11 monitor', 'topology',
        secondary(640, 360, 30), secondary(320, 180, 7)),
      ['0: 1280x720@30', '2: 320x180@7']);
  });

  test('are halved and quartered when they ask for too much', () => {
    assert.deepEqual(
      branchesAfter('x11 monitor', 'topology',
        secondary(1280, 720, 15), secondary(4000, 4000, 7)),
      ['0: 1280x720@30', '1: 640x360@15', '2: 320x180@7']);
  });

  test('are kept exactly as given for an X11 window', () => {
    assert.deepEqual(
      branchesAfter('x11 window', 'topology',
        secondary(1280, 720, 30), secondary(1920, 1080, 60)),
      ['0: 1280x720@30', '1: 1280x720@30', '2: 1920x1080@60']);
  });
});

describe('the sound of a parsed request', () => {
  const soundOf = (mode, linuxAudio) =>
    parsed('portal', { 'audio.mode': mode, linuxAudio }).linuxAudio;
  const plain = (sourceIndex, pipeWireTargetObject) => ({
    sourceIndex,
    pipeWireTargetObject,
    pipeWireNodeId: 0,
    pipeWireObjectSerial: 0,
    processId: 0,
    applicationName: '',
    processBinary: '',
    nodeName: '',
    mediaName: '',
    targetObject: '',
  });

  test('is none without reading linuxAudio', () => {
    assert.deepEqual(soundOf('none', 5),
      { mode: 'none', pipeWireTargetObjects: [], sources: [] });
  });

  test('keeps the mode that was asked for', () => {
    for (const [mode, linuxMode] of
      [['system', 'system'], ['auto', 'system'], ['process', 'process']]) {
      assert.deepEqual(
        soundOf(mode, { mode: linuxMode, pipeWireTargetObjects: [42] }),
        { mode, pipeWireTargetObjects: [42], sources: [plain(0, 42)] });
    }
  });

  test('keeps order and duplicates of the targets', () => {
    const sound = soundOf('process', {
      mode: 'process',
      pipeWireTargetObjects: [42, 7.9, 42, 2 ** 31 - 1],
    });
    assert.deepEqual(sound.pipeWireTargetObjects, [42, 7, 42, 2147483647]);
    assert.deepEqual(sound.sources,
      [plain(0, 42), plain(1, 7), plain(2, 42), plain(3, 2147483647)]);
  });

  test('keeps as many sources as targets exactly as given', () => {
    const given = [
      {
        pipeWireTargetObject: 1000,
        pipeWireNodeId: 4294967295,
        pipeWireObjectSerial: -1,
        processId: 12.9,
        applicationName: 'Müsik',
        processBinary: 'player',
        nodeName: 'node',
        mediaName: 'media',
        targetObject: 'target',
      },
      Object.assign(() => {}, { processId: '77', mediaName: 5 }),
    ];
    const { sources } = soundOf('process', {
      mode: 'process',
      pipeWireTargetObjects: [1, 2],
      pipeWireAudioSources: given,
    });
    assert.deepEqual(sources, [
      {
        ...given[0],
        sourceIndex: 0,
        pipeWireObjectSerial: 4294967295,
        processId: 12,
      },
      plain(1, 0),
    ]);
  });

  test('has plain sources when their count is not that of the targets', () => {
    const named = { applicationName: 'named' };
    for (const list of [[], [named], [named, null], [7, named, 'x'],
      [named, named, named]]) {
      const { sources } = soundOf('process', {
        mode: 'process',
        pipeWireTargetObjects: [5, 6],
        pipeWireAudioSources: list,
      });
      assert.deepEqual(sources, [plain(0, 5), plain(1, 6)]);
    }
  });

  test('skips what is no object when it counts the sources', () => {
    const { sources } = soundOf('process', {
      mode: 'process',
      pipeWireTargetObjects: [5],
      pipeWireAudioSources: [null, 7, { nodeName: 'kept' }, 'x', true],
    });
    assert.deepEqual(sources, [{ ...plain(0, 0), nodeName: 'kept' }]);
  });

  test('finds the sources of an almost empty endless list at once', () => {
    const endless = [];
    endless[3_000_000_000] = { nodeName: 'far away' };
    endless.length = 2 ** 32 - 1;
    const { sources } = soundOf('process', {
      mode: 'process',
      pipeWireTargetObjects: [5],
      pipeWireAudioSources: endless,
    });
    assert.deepEqual(sources, [{ ...plain(0, 0), nodeName: 'far away' }]);
  });
});
