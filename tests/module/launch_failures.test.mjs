import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { runNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest, windowRequest } from '../support/requests.mjs';
import { until } from '../support/until.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
const startFailure = (name) => new RegExp(
  `^${name} pipeline (failed to enter PLAYING state|` +
  'reported GStreamer state-change failure)$');

async function assertNextCaptureWorks() {
  const { packets, events } = collect();
  addon.captureSetup(request);
  await until(() => packets.length > 3, 'packets of a good capture');
  addon.stopCapture();
  await until(() => events.length >= 2, 'the stopped event');
  assert.deepEqual(events.map(({ state }) => state), ['ready', 'stopped']);
}

test('a display that does not exist is an error and no more', async () => {
  const { events } = collect();
  process.env.DISPLAY = ':64321';
  try {
    assert.throws(() => addon.captureSetup(request),
      { name: 'Error', message: startFailure('video') });
  } finally {
    process.env.DISPLAY = context.display;
  }
  assert.equal(addon.isCapturing(), false);
  const stats = addon.getStats();
  assert.equal(stats.capturing, false);
  assert.deepEqual(stats.branchStats, []);
  assert.equal(stats.framesCaptured, 0);
  await new Promise(setImmediate);
  assert.deepEqual(events, [], 'a failed setup emits no event');
  await assertNextCaptureWorks();
});

test('a window that does not exist never ends the host', async () => {
  const child = await runNode(`
    const { events } = collect();
    let thrown;
    try {
      addon.captureSetup(windowRequest({ handle: 0x7ffffff }));
    } catch (error) {
      thrown = error.message;
    }
    if (thrown === undefined) {
      await until(() => events.some(({ state }) => state === 'error'),
        'the error event');
      addon.stopCapture();
    }
    console.log('alive', addon.isCapturing());
  `, { display: context.display });
  assert.equal(child.stdout, 'alive false\n', child.stderr);
  assert.equal(child.code, 0);
});

test('a refused window leaves the next capture whole', async () => {
  assert.throws(() => addon.captureSetup(windowRequest({ handle: 0 })),
    { message: 'handle must be a positive safe integer' });
  assert.equal(addon.isCapturing(), false);
  await assertNextCaptureWorks();
});

test('hardware encoding that is not there is refused by name', async () => {
  const { providerProbeReport } = addon.getStats();
  const refusal = (temporalLayerCount) => {
    try {
      addon.captureSetup(monitorRequest({
        sourceWidth: 320,
        sourceHeight: 180,
        encoderRequirement: 'hardware',
        temporalLayerCount,
      }));
    } catch ({ message }) {
      return message;
    }
    return 'no refusal';
  };
  assert.equal(refusal(3), 'Linux hardware encoder remains flat NVENC ' +
    'simulcast; capture.temporalLayerCount must be 1');
  if (providerProbeReport.every(({ selectableForSimulcastFps }) =>
    !selectableForSimulcastFps)) {
    assert.equal(refusal(1), 'Linux hardware encoderRequirement could not ' +
      'select NVIDIA hardware simulcast FPS profile');
  }
  assert.equal(addon.isCapturing(), false);
  await assertNextCaptureWorks();
});

test('sound without a sound server is an error that leaves all idle',
  async () => {
    const runtimeFolder = mkdtempSync(
      path.join(tmpdir(), 'linux-capture-test-'));
    try {
      const child = await runNode(`
        const request = monitorRequest({
          sourceWidth: 320, sourceHeight: 180,
        });
        const collected = collect();
        let thrown;
        try {
          addon.captureSetup(withProcessAudio(request, [42]));
        } catch (error) {
          thrown = error;
        }
        const stats = addon.getStats();
        await new Promise(setImmediate);
        console.log(JSON.stringify({
          name: thrown?.name, message: thrown?.message,
          isCapturing: addon.isCapturing(), sources: stats.audioSourceStats,
          branches: stats.branchStats, events: collected.events,
        }));
        const { packets } = collect();
        addon.captureSetup(request);
        await until(() => packets.length > 3, 'packets without sound');
        addon.stopCapture();
        console.log('captured without sound');
      `, {
        display: context.display,
        environment: {
          XDG_RUNTIME_DIR: runtimeFolder,
          PIPEWIRE_REMOTE: undefined,
        },
        timeoutMs: 45_000,
      });
      assert.equal(child.code, 0, child.stderr);
      const [first, second] = child.stdout.split('\n');
      const { name, message, ...rest } = JSON.parse(first);
      assert.equal(name, 'Error');
      assert.match(message, startFailure('audio'));
      assert.deepEqual(rest,
        { isCapturing: false, sources: [], branches: [], events: [] });
      assert.equal(second, 'captured without sound');
    } finally {
      rmSync(runtimeFolder, { recursive: true });
    }
  });
