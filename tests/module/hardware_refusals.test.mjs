import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runHardware } from '../support/hardware.mjs';

const temporalRefusal = 'Linux hardware encoder remains flat NVENC ' +
  'simulcast; capture.temporalLayerCount must be 1';
const selectionRefusal = 'Linux hardware encoderRequirement could not ' +
  'select NVIDIA hardware simulcast FPS profile';
const sourceRefusal = 'Linux hardware simulcast FPS parity requires Wayland ' +
  'portal PipeWire capture';
const branchRefusal = 'Linux hardware simulcast FPS parity requires exactly ' +
  'three spatial branches';

// Tries requests with ever fewer faults and tells what each was refused with.
const tryRequests = `
  const collected = collect();
  const branches = [{ width: 320, height: 180, fps: 15, bitrate: 500_000 }];
  const wrongSource = (temporalLayerCount) => ({
    ...monitorRequest({ sourceWidth: 640, sourceHeight: 360, width: 640,
      height: 360, encoderRequirement: 'hardware', temporalLayerCount,
      branches }),
  });
  const attempts = [wrongSource(3), wrongSource(2), wrongSource(1),
    hardwareRequest({ branches, temporalLayerCount: 3 }),
    hardwareRequest({ branches }), hardwareRequest({ branches: [] })];
  const refusals = attempts.map((request) => {
    try {
      addon.captureSetup(request);
      return 'no refusal';
    } catch (error) {
      return error.name + ': ' + error.message;
    }
  });
`;
const reportIdle = `
  const stats = addon.getStats();
  const forced = addon.forceKeyframe();
  const forceError = addon.getStats().lastOpenH264Error;
  let bitrateError;
  try {
    addon.setBitrate(1_000_000);
  } catch (error) {
    bitrateError = error.message;
  }
  await new Promise(setImmediate);
  const events = [...collected.events];
`;

function assertIdle({ stats, forced, forceError, bitrateError, events }) {
  assert.equal(stats.capturing, false);
  assert.deepEqual(stats.branchStats, []);
  assert.equal(stats.framesEncoded, 0);
  assert.equal(forced, false);
  assert.equal(forceError,
    'Linux ForceKeyframe requires active OpenH264 or hardware video encoders');
  assert.equal(bitrateError,
    'Linux setBitrate requires an active capture pipeline');
  assert.deepEqual(events, [], 'a failed setup emits no event');
}

test('with the encoder, layers, then source, then branches are refused',
  async () => {
    const result = await runHardware(`
      ${tryRequests}
      ${reportIdle}
      addon.captureSetup(hardwareRequest());
      await until(() => collected.packets.length > 5, 'packets');
      const isCapturing = addon.isCapturing();
      addon.stopCapture();
      report({ refusals, stats, forced, forceError, bitrateError, events,
        isCapturing });
    `);
    assert.deepEqual(result.refusals, [temporalRefusal, temporalRefusal,
      sourceRefusal, temporalRefusal, branchRefusal, branchRefusal]
      .map((message) => `Error: ${message}`));
    assertIdle(result);
    assert.equal(result.isCapturing, true, 'the next capture works');

    // What was chosen before the text was refused stays to be seen.
    assert.equal(result.stats.selectedEncoder, 'gstreamer-nvh264enc');
    assert.equal(result.stats.hardwareSimulcastFpsSatisfied, true);
    assert.equal(result.stats.videoPipeline, '');
    assert.ok(result.stages.includes(`captureSetup:error:${branchRefusal}`));
  });

test('without the encoder, layers, then the missing encoder are refused',
  async () => {
    const result = await runHardware(`
      ${tryRequests}
      ${reportIdle}
      report({ refusals, stats, forced, forceError, bitrateError, events });
    `, { standins: ['pipewire'] });
    assert.deepEqual(result.refusals, [temporalRefusal, temporalRefusal,
      selectionRefusal, temporalRefusal, selectionRefusal, selectionRefusal]
      .map((message) => `Error: ${message}`));
    assertIdle(result);
    const { selectedEncoder, selectedProvider, encoderProvider, providerTier,
      isHardwareEncoder, isDegradedCpuFallback, sourceMemoryFeature,
      encoderInputMemoryFeature, hardwareParityMode,
      temporalMetadataSource } = result.stats;
    assert.deepEqual({
      selectedEncoder, selectedProvider, encoderProvider, providerTier,
      isHardwareEncoder, isDegradedCpuFallback, sourceMemoryFeature,
      encoderInputMemoryFeature, hardwareParityMode, temporalMetadataSource,
    }, {
      selectedEncoder: '',
      selectedProvider: '',
      encoderProvider: '',
      providerTier: 'degraded-cpu',
      isHardwareEncoder: false,
      isDegradedCpuFallback: true,
      sourceMemoryFeature: 'SystemMemory',
      encoderInputMemoryFeature: 'SystemMemoryI420',
      hardwareParityMode: 'none',
      temporalMetadataSource: 'missing',
    });
  });

test('a branch that fitting drops is missing from the three', async () => {
  // The second smaller branch asks for the rate of the first.
  const { refusal } = await runHardware(`
    let refusal;
    try {
      addon.captureSetup(hardwareRequest({ branches: [
        { width: 320, height: 180, fps: 15, bitrate: 500_000 },
        { width: 160, height: 90, fps: 15, bitrate: 200_000 },
      ] }));
    } catch (error) {
      refusal = error.message;
    }
    report({ refusal });
  `);
  assert.equal(refusal, branchRefusal);
});
