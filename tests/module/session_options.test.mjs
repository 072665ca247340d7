import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { describe, test } from 'node:test';
import * as imported from 'linux-capture-addon/session';

const require = createRequire(import.meta.url);
const { planVideo } = require('../../lib/session/video_options.js');
const { captureErrorCodes, startCapture } = imported;

const screen = Object.freeze({
  type: 'monitor', geometry: { width: 640, height: 360 },
});

test('require and import give the same entries', async () => {
  assert.equal(require('linux-capture-addon/session').startCapture,
    startCapture);
  assert.deepEqual(Object.keys(imported).filter((name) => name !== 'default'),
    ['CaptureError', 'captureErrorCodes', 'listTargets', 'selectRegion',
      'startCapture', 'takeScreenshot']);
  const addon = await import('linux-capture-addon');
  assert.equal(addon.getStats, require('linux-capture-addon').getStats);
  assert.equal(require('linux-capture-addon/package.json').name,
    'linux-capture-addon');
});

describe('an option that is wrong is named', () => {
  const cases = [
    [undefined, /^options must be an object$/],
    [{}, /^source must be an object$/],
    [{ source: screen, audoi: true }, /^options has no option "audoi"/],
    [{ source: { type: 'camera' } }, /^source\.type must be one of "monitor"/],
    [{ source: { ...screen, name: 'a' } }, /a name or a geometry, not both$/],
    [{ source: { type: 'monitor', geometry: { width: 1.5, height: 1 } } },
      /^source\.geometry\.width must be a whole number from 1 /],
    [{ source: { type: 'window' } },
      /^source needs exactly one of id, title, processId$/],
    [{ source: { type: 'window', id: 1, title: 'a' } }, /exactly one of/],
    [{ source: { type: 'portal', types: [] } }, /^source\.types must be/],
    [{ source: { type: 'portal', cursor: 'big' } }, /^source\.cursor must be/],
    [{ source: { type: 'pipewire', fd: -1 } }, /^source\.fd must be/],
    [{ source: screen, video: { fps: 0 } }, /^video\.fps must be/],
    [{ source: screen, video: { width: 14 } },
      /^video\.width must be a whole number from 16 to 16384$/],
    [{ source: screen, video: { width: 24 } },
      /^video \(24x14\) is smaller than 16x16, the least that the encoder /],
    [{ source: screen, video: { branches: [{ height: 8 }] } },
      /^video\.branches\[0\]\.height must be a whole number from 16 /],
    [{ source: screen, video: { branches: [{ width: 20 }] } },
      /^video\.branches\[0\] \(20x1\d\) is smaller than 16x16/],
    // Nobody is asked for a source in vain.
    [{ source: { type: 'window', id: 1 }, video: { height: 15 } },
      /^video\.height must be a whole number from 16 /],
    [{ source: screen, video: { layers: 4 } }, /^video\.layers must be/],
    [{ source: screen, video: { encoder: 'fast' } }, /^video\.encoder must be/],
    [{ source: screen, video: { keyframeEvery: 0 } }, /^video\.keyframeEvery/],
    [{ source: screen, video: { branches: [{}] } },
      /^video\.branches\[0\] needs a width or a height$/],
    [{ source: screen, video: { branches: [{ width: 640, fps: 15 }] } },
      /^video\.branches\[0\] \(640x360, 15 fps\) must be smaller and slower/],
    [{ source: screen, video: { branches: [1, 2, 3] } }, /at most two$/],
    [{ source: screen, audio: 'microphone' }, /^audio must be an object$/],
    [{ source: screen, audio: {} }, /^audio needs exactly one of/],
    [{ source: screen, audio: { processId: 'x' } }, /^audio\.processId must/],
    [{ source: screen, audio: { application: 'x', follow: 1 } },
      /^audio\.follow must be true or false$/],
    [{ source: screen, audio: { application: '' } },
      /^audio\.application must be a text that is not empty$/],
    [{ source: screen, audio: { linuxAudio: 5 } },
      /^audio\.linuxAudio must be an object$/],
    [{ source: screen, audio: { linuxAudio: {}, microphone: true } },
      /^audio\.linuxAudio names the microphone itself$/],
    [{ source: screen, signal: {} }, /^signal must be an AbortSignal$/],
  ];
  for (const [options, message] of cases) {
    test(`${JSON.stringify(options)}`, async () => {
      await assert.rejects(startCapture(options), {
        name: 'CaptureError', code: 'ERR_CAPTURE_ARGUMENT', message,
      });
    });
  }
});

describe('what is left open follows from the source', () => {
  const plan = (video, width = 1920, height = 1080) =>
    planVideo(video, { width, height }).capture;
  const sizeOf = (...args) => {
    const { width, height } = plan(...args);
    return [width, height];
  };

  test('the size is the source\'s, up to a limit and even', () => {
    assert.deepEqual(sizeOf({}), [1920, 1080]);
    assert.deepEqual(sizeOf({}, 1367, 769), [1366, 768]);
    assert.deepEqual(sizeOf({}, 3840, 2160), [1920, 1080]);
    assert.deepEqual(sizeOf({}, 1080, 1920), [1080, 1920]);
  });

  test('one side gives the other', () => {
    assert.deepEqual(sizeOf({ width: 1280 }), [1280, 720]);
    assert.deepEqual(sizeOf({ height: 360 }), [640, 360]);
    assert.deepEqual(sizeOf({ width: 500, height: 500 }), [500, 500]);
  });

  test('rate and bitrate have usual values', () => {
    const { fps, bitrate, maxBitrate, temporalLayerCount } = plan({});
    assert.deepEqual([fps, bitrate, maxBitrate, temporalLayerCount],
      [30, 6_220_000, 9_330_000, 1]);
    assert.equal(plan({ width: 160 }).bitrate, 200_000);
    assert.equal(plan({ bitrate: 1_000_000 }).bitrate, 1_000_000);
  });

  test('a branch has half the rate of the one before', () => {
    const { topology } =
      plan({ branches: [{ width: 1280 }, { height: 360 }] });
    assert.deepEqual(topology, {
      mode: 'topology',
      branches: [
        { width: 1280, height: 720, fps: 15, bitrate: 1_380_000 },
        { width: 640, height: 360, fps: 8, bitrate: 200_000 },
      ],
    });
  });
});

test('no function takes a signal that is none, or has been given', async () => {
  for (const run of [imported.selectRegion, imported.takeScreenshot,
    startCapture]) {
    const options = run === imported.selectRegion ? {} : { source: screen };
    await assert.rejects(run({ ...options, signal: {} }),
      { code: 'ERR_CAPTURE_ARGUMENT', message: /signal must be/ });
    await assert.rejects(run({ ...options, signal: AbortSignal.abort() }),
      { name: 'AbortError' });
  }
});

describe('what a machine lacks is told', () => {
  const withVariable = async (name, value, use) => {
    const before = process.env[name];
    if (value === undefined) delete process.env[name];
    else process.env[name] = value;
    try {
      await use();
    } finally {
      if (before === undefined) delete process.env[name];
      else process.env[name] = before;
    }
  };

  test('a program that was not built', async () => {
    const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
    try {
      await withVariable('LINUX_CAPTURE_PROGRAMS', folder, async () => {
        await assert.rejects(startCapture({ source: { type: 'monitor' } }), {
          code: 'ERR_CAPTURE_PROGRAM',
          message: /linux-capture-targets is not in .*npm run build/,
        });
      });
    } finally {
      rmSync(folder, { recursive: true });
    }
  });

  test('a display', async () => {
    await withVariable('DISPLAY', undefined, async () => {
      for (const source of [{ type: 'monitor' }, { type: 'window', id: 1 }]) {
        await assert.rejects(startCapture({ source }),
          { code: 'ERR_CAPTURE_NO_DISPLAY' });
      }
    });
  });

  test('PipeWire', async () => {
    await withVariable('XDG_RUNTIME_DIR', '/nowhere', async () => {
      await assert.rejects(startCapture({ source: screen, audio: 'system' }),
        { code: 'ERR_CAPTURE_NO_PIPEWIRE' });
    });
  });

  test('a hardware encoder, in the native module\'s words', async () => {
    await assert.rejects(
      startCapture({ source: screen, video: { encoder: 'hardware' } }),
      (error) => {
        assert.ok(Object.hasOwn(captureErrorCodes, error.code));
        assert.equal(error.message, error.cause.message);
        return true;
      });
  });
});
